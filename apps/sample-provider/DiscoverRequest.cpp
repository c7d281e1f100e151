#include "DiscoverRequest.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <stdexcept>

namespace sample {
namespace {

const xmlNode* Child(const xmlNode* parent, std::string_view name) {
  for (const xmlNode* node = parent ? parent->children : nullptr; node; node = node->next) {
    if (node->type == XML_ELEMENT_NODE && reinterpret_cast<const char*>(node->name) == name)
      return node;
  }
  return nullptr;
}

std::string Text(const xmlNode* node) {
  const std::unique_ptr<xmlChar, xmlFreeFunc> text(xmlNodeGetContent(node), xmlFree);
  return text ? reinterpret_cast<const char*>(text.get()) : "";
}

template <typename Visit>
void ForEachChild(const xmlNode* parent, Visit visit) {
  for (const xmlNode* node = parent ? parent->children : nullptr; node; node = node->next) {
    if (node->type == XML_ELEMENT_NODE)
      visit(reinterpret_cast<const char*>(node->name), Text(node));
  }
}

}  // namespace

DiscoverRequest ParseDiscover(std::string_view body) {
  if (body.size() > 16U << 20U) throw std::runtime_error("The request is larger than 16 MiB.");
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr, nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      xmlFreeDoc);
  if (!document) throw std::runtime_error("The request is not a well-formed XML document.");
  if (document->intSubset) throw std::runtime_error("The request has a document type declaration.");
  const xmlNode* discover =
      Child(Child(reinterpret_cast<const xmlNode*>(document.get()), "Envelope"), "Body");
  discover = Child(discover, "Discover");
  if (!discover) throw std::runtime_error("The request is not a Discover call.");
  const xmlNode* type = Child(discover, "RequestType");
  if (!type) throw std::runtime_error("The Discover call has no RequestType.");

  DiscoverRequest request;
  request.type = Text(type);
  ForEachChild(Child(Child(discover, "Restrictions"), "RestrictionList"),
               [&](const char* name, std::string value) {
                 request.restrictions[name].push_back(std::move(value));
               });
  ForEachChild(
      Child(Child(discover, "Properties"), "PropertyList"),
      [&](const char* name, std::string value) { request.properties[name] = std::move(value); });
  return request;
}

}  // namespace sample
