// What must be on the disk, and not only on its way there.
#ifndef KESTRO_CONFIGD_DURABLE_HPP
#define KESTRO_CONFIGD_DURABLE_HPP

#include <string>

namespace kestro::configd {

// The content of a file. Throws std::filesystem::filesystem_error.
void sync_file(const std::string& path);

// The name of a file that was moved: where that fails, the file may have its old one after a power cut. The log says so.
void sync_name(const std::string& path);

}  // namespace kestro::configd

#endif
