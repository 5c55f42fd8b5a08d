#include "images/image_formats.h"

#include <algorithm>

namespace brisko {

const std::unordered_set<std::string>& ImageFormats::extensions() {
  static const std::unordered_set<std::string> set{
      "jpg",  "jpeg", "jpe", "png", "gif", "heic", "heif", "hif", "heics", "avif", "webp", "tif",
      "tiff", "bmp",  "dib", "jxl", "jp2", "j2k",  "psd",  "tga", "exr",   "hdr",  "ico",  "dng",
      "cr2",  "cr3",  "crw", "nef", "nrw", "arw",  "srf",  "sr2", "raf",   "orf",  "rw2",  "rwl",
      "pef",  "srw",  "raw", "3fr", "iiq", "mos",  "erf",  "dcr", "mrw"};
  return set;
}

bool ImageFormats::isImage(std::string_view path) {
  const size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return false;
  std::string extension(name.substr(dot + 1));
  std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  });
  return extensions().count(extension) > 0;
}

}  // namespace brisko
