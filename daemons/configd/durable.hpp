// What must be on the disk, and not only on its way there.
#ifndef KESTRO_CONFIGD_DURABLE_HPP
#define KESTRO_CONFIGD_DURABLE_HPP

#include <string>

namespace kestro::configd {

// The content of a file. Throws std::filesystem::filesystem_error.
void sync_file(const std::string& path);

// The name that a file was given: where that fails, it may not have it after a power cut. The log says so.
void sync_name(const std::string& path);

}  // namespace kestro::configd

#endif
