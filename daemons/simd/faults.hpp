// Everything that is wrong with the unit at present.
#ifndef KESTRO_SIMD_FAULTS_HPP
#define KESTRO_SIMD_FAULTS_HPP

#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "simd/fault.hpp"

namespace kestro::simd {

class Faults {
 public:
  // Told of each edge switch that goes offline or comes back.
  using Announce = std::function<void(int32_t oec_number, bool online)>;
  void on_change(Announce announce) { announce_ = std::move(announce); }

  // Adds one, or takes away: "none" with an edge switch brings that back, without one it ends all faults. A later delay
  // replaces an earlier one.
  void set(const Fault& fault);

  [[nodiscard]] bool unit_is_offline() const { return unit_offline_; }
  [[nodiscard]] bool is_offline(int32_t oec_number) const { return offline_.contains(oec_number); }
  [[nodiscard]] bool is_silent() const { return silent_; }
  [[nodiscard]] std::chrono::milliseconds delay() const { return delay_; }

  // In the words of the command line: {"offline=c3", "late=1500"}.
  [[nodiscard]] std::vector<std::string> words() const;

 private:
  void take_offline(int32_t oec_number);
  void bring_back(int32_t oec_number);
  void clear();

  bool unit_offline_ = false;
  std::set<int32_t> offline_;
  bool silent_ = false;
  std::chrono::milliseconds delay_{0};
  Announce announce_ = [](int32_t /*oec_number*/, bool /*online*/) {};
};

}  // namespace kestro::simd

#endif
