// Validators beside the calls of the matcher that they come to.
#include <benchmark/benchmark.h>
#include <pcre.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "kestro_validation.h"
#include "work.hpp"

namespace kestro::bench {

namespace {

struct Match {
  std::string pattern;
  std::string subject;
};

// What a validator asks of the matcher. The linker leads its calls past here.
class Recording {
 public:
  static void pattern(const char* text) {
    if (current_ != nullptr) current_->push_back({text, ""});
  }
  static void subject(const char* text) {
    if (current_ != nullptr) current_->back().subject = text;
  }
  template <class Call>
  static std::vector<Match> of(Call call) {
    std::vector<Match> matches;
    current_ = &matches;
    call();
    current_ = nullptr;
    return matches;
  }

 private:
  static inline std::vector<Match>* current_ = nullptr;
};

void match_barely(const Match& match) {
  const char* error = nullptr;
  int offset = 0;
  pcre* const pattern = pcre_compile(match.pattern.c_str(), 0, &error, &offset, nullptr);
  pcre_extra* const study = pcre_study(pattern, 0, &error);
  std::array<int, 10> offsets;
  // Validators are not told the length either.
  const char* const subject = match.subject.c_str();
  benchmark::DoNotOptimize(
      pcre_exec(pattern, study, subject, static_cast<int>(strlen(subject)), 0, 0, offsets.data(), offsets.size()));
  if (study != nullptr) pcre_free_study(study);
  pcre_free(pattern);
}

template <class Validate>
Pair beside_matcher(Validate validate) {
  auto matches = Recording::of(validate);
  return {repeat([validate] { benchmark::DoNotOptimize(validate()); }), repeat([matches = std::move(matches)] {
            for (const Match& match : matches) match_barely(match);
          })};
}

struct Row {
  const char* field;
  int32_t (*validate)(const char*);
  const char* value;
};

// Every validator that matches a pattern, with a value that it accepts.
constexpr Row rows[] = {
    {"port_id", validate_port_id, "c12-3"},
    {"c_port_id", validate_c_port_id, "c12-3"},
    {"d_port_id", validate_d_port_id, "d12"},
    {"vlan_name_id", validate_vlan_name_id, "v100"},
    {"oec_id", validate_oec_id, "c12"},
    {"entity_name", validate_entity_name, "v100"},
    {"ip_address", validate_ip_address, "192.168.100.24"},
    {"mac_address", validate_mac_address, "02:00:5e:10:00:01"},
    {"address_range", validate_address_range, "192.168.100.0/24"},
    {"dhcp_range", validate_dhcp_range, "192.168.100.10-192.168.100.200"},
    {"general_address_range", validate_general_address_range, "192.168.100.0/24"},
    {"hostname", validate_hostname, "time.example.net"},
    {"preferred_time_servers", validate_preferred_time_servers, "10.0.0.1 time.example.net"},
    {"oec_sw_upgrade_filename", validate_oec_sw_upgrade_filename, "oec-1.2.3.img"},
    {"unit_sw_upgrade_filename", validate_unit_sw_upgrade_filename, "vtr-h9-1.2.3-4.img"},
    {"db_filename", validate_db_filename, "config.db"},
    {"filename", validate_filename, "config.db"},
    {"description", validate_description, "printer in the lobby"},
    {"username", validate_username, "operator1"},
    {"password", validate_password, "secret-word"},
    {"uuid", validate_uuid, "123e4567-e89b-12d3-a456-426614174000"},
    {"date", validate_date, "2021-03-04"},
    {"time", validate_time, "17:05"},
    {"zone", validate_zone, "America/New_York"},
};

}  // namespace

std::vector<Work> validation_work() {
  std::vector<Work> work;
  for (const Row& row : rows) {
    work.push_back({.name = std::string("validate: ") + row.field, .target = 1.05, .prepare = [row] {
                      return beside_matcher([row] { return row.validate(row.value); });
                    }});
  }
  work.push_back({.name = "validate: date_time", .target = 1.05, .prepare = [] {
                    return beside_matcher([] { return validate_date_time("2021-03-04", "17:05"); });
                  }});
  return work;
}

}  // namespace kestro::bench

extern "C" {

pcre* __real_pcre_compile(const char*, int, const char**, int*, const unsigned char*);
int __real_pcre_exec(const pcre*, const pcre_extra*, const char*, int, int, int, int*, int);

pcre* __wrap_pcre_compile(const char* pattern, int options, const char** error, int* offset,
                          const unsigned char* tables) {
  kestro::bench::Recording::pattern(pattern);
  return __real_pcre_compile(pattern, options, error, offset, tables);
}

int __wrap_pcre_exec(const pcre* pattern, const pcre_extra* extra, const char* subject, int length, int start,
                     int options, int* offsets, int size) {
  kestro::bench::Recording::subject(subject);
  return __real_pcre_exec(pattern, extra, subject, length, start, options, offsets, size);
}
}
