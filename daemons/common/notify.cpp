#include "common/notify.hpp"

#ifdef KESTRO_HAVE_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace kestro::daemons {

void notify([[maybe_unused]] const std::string& state) {
#ifdef KESTRO_HAVE_SYSTEMD
  sd_notify(0, state.c_str());
#endif
}

}  // namespace kestro::daemons
