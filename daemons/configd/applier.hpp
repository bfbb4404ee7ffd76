// Keeps hardware and database in agreement.
//
// A change is stored and applied, or neither: it is written, the hardware is told, and then it is committed. Before the
// hardware is told anything, the switch is committed as pending, and the commit that stores the change clears that again.
// So wherever the process is killed, and whenever the hardware does not say what it did, the switch stays pending; what
// is stored for it is then applied again once the hardware is there. To apply is idempotent.
#ifndef KESTRO_CONFIGD_APPLIER_HPP
#define KESTRO_CONFIGD_APPLIER_HPP

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "configd/core_switch.hpp"
#include "configd/database.hpp"

namespace kestro::configd {

inline constexpr const char* configure_method = "emac.service.CoreSwitchConfigure";

class Applier {
 public:
  // What the hardware is to be told; asked for after the change is written.
  using Calls = std::function<std::vector<CoreSwitch::Call>()>;

  Applier(const Database& database, CoreSwitch& core_switch) : database_(database), core_switch_(core_switch) {}

  // Stores what `write` writes and applies it to the hardware. Throws Silence, Refusal or another Failure; then nothing
  // is stored.
  void change(int32_t switch_number, const std::function<void()>& write, const Calls& calls);

  // Applies what is pending, for as long as one call may take. What is left is for the next time.
  void repair();
  // Asks the hardware for a sign of life if something is pending. To be called every second, and when something became
  // pending; never waits.
  void tick();
  // A switch that refused is not left alone any longer.
  void is_back(int32_t switch_number);
  // What was decided about a switch, or about all, before it was replaced does not count any more.
  void forget(int32_t switch_number) { left_alone_until_.erase(switch_number); }
  void forget_all() { left_alone_until_.clear(); }

 private:
  bool mark_pending(int32_t switch_number);
  void mark_applied(int32_t switch_number);
  void take_back_pending(int32_t switch_number);
  [[nodiscard]] std::vector<int32_t> due() const;
  [[nodiscard]] std::vector<CoreSwitch::Call> stored(int32_t switch_number) const;
  bool apply_stored(int32_t switch_number);
  void leave_alone(int32_t switch_number, const std::string& why);

  const Database& database_;
  CoreSwitch& core_switch_;
  std::map<int32_t, CoreSwitch::Clock::time_point> left_alone_until_;  // switches that refused
};

}  // namespace kestro::configd

#endif
