// What the service manager is told, where the program was built with it and started by it.
#ifndef KESTRO_DAEMONS_NOTIFY_HPP
#define KESTRO_DAEMONS_NOTIFY_HPP

#include <string>

namespace kestro::daemons {

// "READY=1", "STATUS=...", "STOPPING=1", "WATCHDOG=1".
void notify(const std::string& state);

}  // namespace kestro::daemons

#endif
