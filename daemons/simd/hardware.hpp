// The unit without its faults: what it reads, and what it was told.
#ifndef KESTRO_SIMD_HARDWARE_HPP
#define KESTRO_SIMD_HARDWARE_HPP

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kestro_data.h"
#include "simd/values.hpp"

namespace kestro::simd {

struct Port {
  kestro_data_port record{};
  std::vector<kestro_mac_filter> filters;
};

struct Temperature {
  const char* sensor;
  double celsius;
};

struct Identity {
  std::string serial;
  std::string mac_address;
  std::string sw_version;
  std::string hw_version;
};

struct Signal {
  int32_t onu_id;
  double dbm;
};

class Hardware {
 public:
  explicit Hardware(uint64_t seed) noexcept : values_(seed) {}

  // ---- What it reads ----

  [[nodiscard]] Identity identity() const;
  [[nodiscard]] std::vector<Temperature> temperatures() const;
  // Of the optical units on one line: as many as the seed gives it.
  [[nodiscard]] std::vector<Signal> signals(int32_t olt_id) const;
  // What a port of an edge switch delivers: nothing while it, or its PoE, is configured as off.
  [[nodiscard]] int64_t poe_milliwatts(int32_t oec_number, int32_t port_number) const;

  // ---- What it was told ----

  // The state of ports, each in place of its earlier one.
  void configure(int32_t oec_number, const std::vector<Port>& ports);
  // Null for a port that was never configured.
  [[nodiscard]] const Port* port(int32_t oec_number, int32_t port_number) const;

  void set_mgmt_vlan_id(int32_t vlan_id) { mgmt_vlan_id_ = vlan_id; }
  // 0 until it is set.
  [[nodiscard]] int32_t mgmt_vlan_id() const { return mgmt_vlan_id_; }

 private:
  Values values_;
  std::map<std::pair<int32_t, int32_t>, Port> ports_;  // by edge switch and port
  int32_t mgmt_vlan_id_ = 0;
};

}  // namespace kestro::simd

#endif
