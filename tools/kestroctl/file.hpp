// Files that are read and replaced whole.
#ifndef KESTRO_CTL_FILE_HPP
#define KESTRO_CTL_FILE_HPP

#include <string>
#include <string_view>

namespace kestro::ctl {

// The contents; nothing where there is no file. Throws Failure (Refused) where it cannot be read.
std::string read_file_or_nothing(const std::string& path);

// Puts a file with these contents in the place of the old one, of which mode and owner are kept: whoever reads sees all
// of the old or all of the new, also after a power cut. Throws Failure (Refused) with the old file in its place.
void replace_file(const std::string& path, std::string_view contents);

}  // namespace kestro::ctl

#endif
