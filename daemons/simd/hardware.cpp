#include "simd/hardware.hpp"

#include <array>
#include <cstdio>

namespace kestro::simd {

namespace {

struct Sensor {
  const char* name;
  int64_t lowest;  // in half degrees, the resolution of the sensors
  int64_t highest;
};
constexpr std::array<Sensor, 3> sensors = {{{"core", 84, 112}, {"phy", 78, 104}, {"board", 60, 84}}};
constexpr double half = 0.5;
constexpr double quarter = 0.25;

constexpr int64_t lowest_power = 1'800;    // milliwatts: a telephone
constexpr int64_t highest_power = 15'400;  // the most that a port of the first PoE standard gives

constexpr int64_t fewest_onus = 4;
constexpr int64_t most_onus = 8;
constexpr int64_t weakest_signal = -112;  // in quarters of a dBm
constexpr int64_t strongest_signal = -60;

constexpr uint64_t mac_bits = 0xFFFFFF;

std::string format_mac(uint64_t number) {
  std::array<char, sizeof "02:00:01:00:00:00"> text{};
  snprintf(text.data(), text.size(), "02:00:01:%02X:%02X:%02X", static_cast<unsigned>(number >> 16 & 0xFF),
           static_cast<unsigned>(number >> 8 & 0xFF), static_cast<unsigned>(number & 0xFF));
  return text.data();
}

std::string identity_of(const char* what, int32_t first, int32_t second) {
  return std::string(what) + "/" + std::to_string(first) + "/" + std::to_string(second);
}

bool delivers(const kestro_data_port& port) {
  if (port.port_status == KESTRO_DATA_PORT_STATUS_DISABLED) return false;
  return port.poe_status != KESTRO_DATA_PORT_POE_STATUS_DISABLED &&
         port.poe_status != KESTRO_DATA_PORT_POE_STATUS_UNSUPPORTED;
}

}  // namespace

Identity Hardware::identity() const {
  return {"H9-" + std::to_string(values_.between("serial", 100'000, 999'999)),
          format_mac(values_.of("mac_address") & mac_bits),
          "4." + std::to_string(values_.between("sw_version", 0, 9)) + ".0",
          "rev " + std::string(1, static_cast<char>(values_.between("hw_version", 'A', 'D')))};
}

std::vector<Temperature> Hardware::temperatures() const {
  std::vector<Temperature> temperatures;
  for (const auto& sensor : sensors) {
    const auto reading = values_.between(std::string("temperature/") + sensor.name, sensor.lowest, sensor.highest);
    temperatures.push_back({sensor.name, half * static_cast<double>(reading)});
  }
  return temperatures;
}

std::vector<Signal> Hardware::signals(int32_t olt_id) const {
  const auto onus = values_.between("onus/" + std::to_string(olt_id), fewest_onus, most_onus);
  std::vector<Signal> signals;
  for (int32_t onu_id = 1; onu_id <= onus; ++onu_id) {
    const auto reading = values_.between(identity_of("rssi", olt_id, onu_id), weakest_signal, strongest_signal);
    signals.push_back({onu_id, quarter * static_cast<double>(reading)});
  }
  return signals;
}

int64_t Hardware::poe_milliwatts(int32_t oec_number, int32_t port_number) const {
  const Port* const configured = port(oec_number, port_number);
  if (configured != nullptr && !delivers(configured->record)) return 0;
  return values_.between(identity_of("poe", oec_number, port_number), lowest_power, highest_power);
}

void Hardware::configure(int32_t oec_number, const std::vector<Port>& ports) {
  for (const auto& port : ports) ports_[{oec_number, port.record.port_number}] = port;
}

const Port* Hardware::port(int32_t oec_number, int32_t port_number) const {
  const auto found = ports_.find({oec_number, port_number});
  return found == ports_.end() ? nullptr : &found->second;
}

}  // namespace kestro::simd
