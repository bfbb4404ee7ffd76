#include "simd/faults.hpp"

namespace kestro::simd {

void Faults::set(const Fault& fault) {
  switch (fault.kind) {
    case FaultKind::none:
      return fault.oec_number == 0 ? clear() : bring_back(fault.oec_number);
    case FaultKind::offline:
      if (fault.oec_number != 0) return take_offline(fault.oec_number);
      unit_offline_ = true;
      return;
    case FaultKind::silent:
      silent_ = true;
      return;
    case FaultKind::late:
      delay_ = fault.delay;
      return;
  }
}

void Faults::take_offline(int32_t oec_number) {
  if (offline_.insert(oec_number).second) announce_(oec_number, false);
}

void Faults::bring_back(int32_t oec_number) {
  if (offline_.erase(oec_number) != 0) announce_(oec_number, true);
}

void Faults::clear() {
  unit_offline_ = false;
  silent_ = false;
  delay_ = std::chrono::milliseconds(0);
  while (!offline_.empty()) bring_back(*offline_.begin());
}

std::vector<std::string> Faults::words() const {
  std::vector<std::string> words;
  if (unit_offline_) words.push_back(text_of({FaultKind::offline}));
  for (const auto oec_number : offline_) words.push_back(text_of({FaultKind::offline, oec_number}));
  if (silent_) words.push_back(text_of({FaultKind::silent}));
  if (delay_.count() > 0) words.push_back(text_of({FaultKind::late, 0, delay_}));
  return words;
}

}  // namespace kestro::simd
