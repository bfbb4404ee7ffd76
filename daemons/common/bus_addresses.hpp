// Where a daemon stands on the bus.
#ifndef KESTRO_DAEMONS_BUS_ADDRESSES_HPP
#define KESTRO_DAEMONS_BUS_ADDRESSES_HPP

#include <string>
#include <vector>

namespace kestro::daemons {

struct BusAddresses {
  std::string publish;
  std::vector<std::string> subscribe;
};

}  // namespace kestro::daemons

#endif
