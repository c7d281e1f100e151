#include "CubeCopies.h"

#include <string_view>

#include "DiscoverService.h"

namespace sample {
namespace {

constexpr std::string_view kCopy = ", copy ";

/// The request with the numbers of copies taken out.
std::string WithoutCopies(std::string request) {
  for (std::size_t at = request.find(kCopy); at != std::string::npos; at = request.find(kCopy, at))
    request.erase(at, request.find('<', at) - at);
  return request;
}

}  // namespace

HttpReply AnswerWithCopies(Kind kind, std::string request, int copies) {
  request = WithoutCopies(std::move(request));
  HttpReply reply = Answer(kind, request);
  const std::size_t begin = reply.body.find("<row>");
  if (begin == std::string::npos || RequestTypeOf(request) != "MDSCHEMA_CUBES") return reply;
  const std::size_t end = reply.body.rfind("</row>") + 6;
  const std::string rows = reply.body.substr(begin, end - begin);
  std::string all;
  for (int copy = 1; copy <= copies; ++copy) {
    std::size_t done = 0;
    for (std::size_t at; (at = rows.find("</CUBE_NAME>", done)) != std::string::npos; done = at + 1)
      all.append(rows, done, at - done).append(kCopy).append(std::to_string(copy)).append("<");
    all.append(rows, done);
  }
  reply.body.replace(begin, end - begin, all);
  return reply;
}

}  // namespace sample
