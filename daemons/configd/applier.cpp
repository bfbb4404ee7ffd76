#include "configd/applier.hpp"

#include <chrono>
#include <utility>

#include "common/log.hpp"
#include "configd/mgmt_vlan.hpp"
#include "configd/port.hpp"
#include "kestro_data.h"

namespace kestro::configd {

namespace {

constexpr std::chrono::seconds pause_after_refusal{30};

}  // namespace

void Applier::change(int32_t switch_number, const std::function<void()>& write, const Calls& calls) {
  core_switch_.require_not_silent();
  const bool was_pending = mark_pending(switch_number);
  bool may_differ = was_pending;
  try {
    Transaction transaction(database_);
    write();
    const auto told = was_pending ? stored(switch_number) : calls();
    may_differ = true;
    core_switch_.call(told);
    mark_applied(switch_number);
    transaction.commit();
  } catch (const Refusal&) {
    // All of it was refused, or a part of what was pending anyway.
    if (!was_pending) take_back_pending(switch_number);
    throw;
  } catch (const Failure&) {
    if (!may_differ) take_back_pending(switch_number);
    throw;
  }
}

// Whether it was pending before.
bool Applier::mark_pending(int32_t switch_number) {
  if (database_.number(0, "SELECT cfg_pending FROM edge_switch WHERE number = ?1", switch_number) != 0) return true;
  Transaction transaction(database_);
  database_.write("UPDATE edge_switch SET cfg_pending = 1 WHERE number = ?1", switch_number);
  transaction.commit();
  return false;
}

void Applier::mark_applied(int32_t switch_number) {
  database_.write("UPDATE edge_switch SET cfg_pending = 0 WHERE number = ?1", switch_number);
}

// What stays pending is applied once more, which does no harm.
void Applier::take_back_pending(int32_t switch_number) {
  try {
    mark_applied(switch_number);
  } catch (const Failure& failure) {
    daemons::log_warning(name_of_switch(switch_number) + " stays pending: " + failure.what());
  }
}

std::vector<int32_t> Applier::due() const {
  std::vector<int32_t> numbers;
  Statement rows = database_.prepare("SELECT number FROM edge_switch WHERE cfg_pending = 1 ORDER BY number");
  while (rows.step()) {
    const auto pause = left_alone_until_.find(rows.integer(0));
    if (pause == left_alone_until_.end() || pause->second <= CoreSwitch::Clock::now())
      numbers.push_back(rows.integer(0));
  }
  return numbers;
}

std::vector<CoreSwitch::Call> Applier::stored(int32_t switch_number) const {
  std::vector<CoreSwitch::Call> calls;
  calls.push_back({configure_method, for_hardware(switch_number, load_ports(database_, {switch_number, 0}))});
  const int32_t vlan = mgmt_vlan(database_);
  if (switch_number == KESTRO_DATA_OEC_NUMBER_HEAD_END && vlan != 0) {
    calls.push_back({configure_method, mgmt_vlan_for_hardware(vlan)});
  }
  return calls;
}

void Applier::repair() {
  const auto end = CoreSwitch::Clock::now() + core_switch_.timeout();
  for (const int32_t number : due()) {
    if (!apply_stored(number) || CoreSwitch::Clock::now() >= end) return;
  }
}

// False when the hardware is silent.
bool Applier::apply_stored(int32_t switch_number) {
  try {
    core_switch_.call(stored(switch_number));
    mark_applied(switch_number);
    left_alone_until_.erase(switch_number);
    daemons::log_info(name_of_switch(switch_number) + ": stored configuration applied to the hardware");
  } catch (const Silence&) {
    return false;
  } catch (const Failure& failure) {
    leave_alone(switch_number, failure.what());
  }
  return true;
}

// A switch that is offline refuses until it is back; that is said once.
void Applier::leave_alone(int32_t switch_number, const std::string& why) {
  const bool said = left_alone_until_.contains(switch_number);
  left_alone_until_[switch_number] = CoreSwitch::Clock::now() + pause_after_refusal;
  if (said) return;
  daemons::log_warning(name_of_switch(switch_number) + ": stored configuration could not be applied: " + why +
                       "; tried again every " + std::to_string(pause_after_refusal.count()) + " s");
}

void Applier::tick() {
  if (!core_switch_.silent() && !due().empty()) core_switch_.probe();
}

void Applier::is_back(int32_t switch_number) {
  core_switch_.is_heard();
  forget(switch_number);
}

}  // namespace kestro::configd
