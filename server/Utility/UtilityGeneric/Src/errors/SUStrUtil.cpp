#include "Utility/Generic/SUStrUtil.h"

#include "errors/MessageCatalogue.h"

String SUStrUtil::LoadMsgStringOnly(int number, const std::vector<String>& arguments) {
  return MessageCatalogue::Render(number, arguments);
}
