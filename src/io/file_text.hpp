// The whole text of an input file, plain or gzip-compressed.
#pragma once

#include <string>

namespace vorn::io {

// The content of the file, uncompressed when it is gzip (zlib passes other
// files through unchanged). Throws InputError "PATH: is a directory",
// "PATH: " + cannot_open (default "cannot open: REASON") when the file cannot
// be opened, "PATH: read error: ..." for a read or gzip error (a truncated
// stream included).
std::string read_file_text(const std::string& path, const std::string& cannot_open = {});

}  // namespace vorn::io
