#include "Gzip.h"

#include <zlib.h>

#include <stdexcept>

namespace sample {
namespace {

uLong Checksum(uLong sum, std::string_view bytes) {
  return crc32(sum, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
}

/// Compresses a part of a raw deflate stream. Parts that end with a full flush are independent, so
/// they can be repeated without compressing them again.
std::string Deflate(std::string_view bytes, int flush) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("sample provider: cannot compress");
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, flush);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

void AppendNumber(std::string& out, unsigned long number) {
  for (int byte = 0; byte < 4; ++byte) out += static_cast<char>((number >> (8 * byte)) & 0xFF);
}

}  // namespace

std::string Gzip(std::string_view text) { return GzipBomb(text, text.size(), 0); }

std::string GzipBomb(std::string_view text, std::size_t place, unsigned long mebibytes) {
  const std::string blanks(mebibytes > 0 ? 1U << 20U : 0, ' ');
  const std::string packed = Deflate(blanks, Z_FULL_FLUSH);
  const uLong blankSum = Checksum(0, blanks);

  std::string out("\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03", 10);
  uLong sum = Checksum(0, text.substr(0, place));
  out += Deflate(text.substr(0, place), Z_FULL_FLUSH);
  for (unsigned long i = 0; i < mebibytes; ++i) {
    out += packed;
    sum = crc32_combine(sum, blankSum, static_cast<z_off_t>(blanks.size()));
  }
  out += Deflate(text.substr(place), Z_FINISH);
  AppendNumber(out, Checksum(sum, text.substr(place)));
  AppendNumber(out, text.size() + mebibytes * blanks.size());
  return out;
}

}  // namespace sample
