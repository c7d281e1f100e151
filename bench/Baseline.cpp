#include "Baseline.h"

#include <curl/curl.h>
#include <libxml/parser.h>

#include <stdexcept>

struct Baseline::Handles {
  CURL* easy = curl_easy_init();
  curl_slist* headers = nullptr;

  ~Handles() {
    curl_slist_free_all(headers);
    curl_easy_cleanup(easy);
  }
};

Baseline::Baseline(const std::string& url) : m_handles(std::make_unique<Handles>()) {
  CURL* const easy = m_handles->easy;
  for (const char* line : {"Expect:", "Content-Type: text/xml; charset = UTF-8",
                           "SOAPAction: \"urn:schemas-microsoft-com:xml-analysis:Discover\""})
    m_handles->headers = curl_slist_append(m_handles->headers, line);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_handles->headers);
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, 128 * 1024L);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* reply) {
        static_cast<std::string*>(reply)->append(bytes, count);
        return count;
      });
}

Baseline::~Baseline() = default;

std::string Baseline::Receive(const std::string& request) {
  CURL* const easy = m_handles->easy;
  std::string reply;
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.c_str());
  if (const CURLcode code = curl_easy_perform(easy); code != CURLE_OK)
    throw std::runtime_error(curl_easy_strerror(code));
  return reply;
}

void Baseline::Parse(const std::string& reply) {
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*, int,
                              const xmlChar**, int, int, const xmlChar**) {};
  handler.endElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*) {};
  handler.characters = [](void*, const xmlChar*, int) {};
  if (xmlSAXUserParseMemory(&handler, nullptr, reply.data(), static_cast<int>(reply.size())) != 0)
    throw std::runtime_error("the reply is not well-formed");
}
