// Every reader of request parameters, and of other daemons' answers, on any JSON value.
//
// An input is the log's choice, the size of the callers' buffers (whose bits are also the kinds of ports that are
// admitted), and a JSON text. The readers look for the first member of the object, so that any value meets every reader.
#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_data.h"
#include "kestro_general.h"
#include "kestro_jrpc_utils.h"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

// What all readers are called with.
struct Parameters {
  const json_t* object;
  const char* name;
  int32_t length;
};

using TextReader = int32_t (*)(const json_t*, json_t**, const char*, char*, int32_t);
using NumberReader = int32_t (*)(const json_t*, json_t**, const char*, int32_t*);

constexpr TextReader text_readers[] = {
    kestro_jrpc_utils_parse_input_string,
    kestro_jrpc_utils_retrieve_input_oec_model,
    kestro_jrpc_utils_retrieve_input_alias,
    kestro_jrpc_utils_retrieve_input_vlan_mode,
    kestro_jrpc_utils_retrieve_input_status,
    kestro_jrpc_utils_retrieve_input_description,
    kestro_jrpc_utils_retrieve_input_entity_name,
    kestro_jrpc_utils_retrieve_input_entity_extension,
    kestro_jrpc_utils_retrieve_input_ip_address,
    kestro_jrpc_utils_retrieve_input_mac_address,
    kestro_jrpc_utils_retrieve_input_macaddr_allowed,
    kestro_jrpc_utils_retrieve_input_oec_sw_upgrade_filename,
    kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename,
    kestro_jrpc_utils_retrieve_input_unit_sw_bank,
    kestro_jrpc_utils_retrieve_input_username,
    kestro_jrpc_utils_retrieve_input_password,
    kestro_jrpc_utils_retrieve_input_date,
    kestro_jrpc_utils_retrieve_input_time,
    kestro_jrpc_utils_retrieve_input_time_zone,
};

constexpr NumberReader number_readers[] = {
    kestro_jrpc_utils_parse_input_integer,        kestro_jrpc_utils_retrieve_input_unit_id,
    kestro_jrpc_utils_retrieve_input_port_number, kestro_jrpc_utils_retrieve_input_port_link_speed,
    kestro_jrpc_utils_retrieve_input_vlan_id,     kestro_jrpc_utils_retrieve_input_laser_id,
    kestro_jrpc_utils_retrieve_input_olt_id,      kestro_jrpc_utils_retrieve_input_onu_id,
    kestro_jrpc_utils_retrieve_input_enable,      kestro_jrpc_utils_retrieve_input_periodic_interval,
};

// The explanation that a reader leaves, released at the end.
class Explanation {
 public:
  json_t** place() noexcept { return &raw_; }
  void check(int32_t status) const {
    require(status <= 0, "a status");
    if (raw_ == nullptr) return;
    require(status != 0, "a success needs no explanation");
    const json_t* const message = json_object_get(raw_, "message");
    require(json_object_size(raw_) == 1 && json_is_string(message), "an explanation is a message");
    require(json_string_length(message) <= 99, "of at most 99 characters");
  }
  Explanation() = default;
  Explanation(const Explanation&) = delete;
  Explanation& operator=(const Explanation&) = delete;
  ~Explanation() { json_decref(raw_); }

 private:
  json_t* raw_ = nullptr;
};

// A buffer of the callers' size, and what a reader left in it.
template <class Read>
void read_text(const Parameters& in, Read read) {
  const std::string before(static_cast<size_t>(in.length), '?');
  const Text out = exact(before);
  Explanation explanation;
  const int32_t status = read(explanation.place(), out.get());
  explanation.check(status);
  require(out.get()[in.length] == '\0', "nothing is written behind the buffer");
  if (status == 0) require(memchr(out.get(), '\0', before.size()) != nullptr, "a text is terminated");
  const char* const value = json_string_value(json_object_get(in.object, in.name));
  const bool fits = value == nullptr || strlen(value) < before.size();
  if (status != 0 && fits) require(before.empty() || out.get()[0] == '\0', "no text is left after a failure");
  require(status != 0 || fits, "a text that does not fit is refused");
}

void read_texts(const Parameters& in) {
  for (const auto reader : text_readers) {
    read_text(in, [&](json_t** err, char* out) { return reader(in.object, err, in.name, out, in.length); });
  }
  read_text(in, [&](json_t** err, char* out) {
    return kestro_jrpc_utils_retrieve_input_oec_id(in.object, err, in.name, out, in.length, 1);
  });
  const auto admits = [&](int bit) { return static_cast<int8_t>(in.length >> bit & 1); };
  read_text(in, [&](json_t** err, char* out) {
    return kestro_jrpc_utils_retrieve_input_port_id(in.object, err, in.name, out, in.length, admits(0), admits(1),
                                                    admits(2), admits(3));
  });
}

// The reader of names of databases renames files, so it gets some: never outside of the directory that this build has
// for uploads, and nothing at all where that is the unit's own. A name with a slash in it would only find its file if
// there were a directory whose name begins with a dash.
void read_db_filename(const Parameters& in) {
  const std::string uploads = KESTRO_UPDATE_DIR;
  const char* const value = json_string_value(json_object_get(in.object, in.name));
  if (uploads.starts_with("/tmp/update") || (value != nullptr && strchr(value, '/') != nullptr)) return;
  const std::string name = value != nullptr ? value : "";
  const std::string uploaded = uploads + name;
  const std::string renamed = uploads + name.substr(std::min(name.find_first_not_of('-'), name.size()));
  const bool upload = name.starts_with('-') && uploaded.size() < 200;
  mkdir(uploads.substr(0, uploads.find_last_not_of('/') + 1).c_str(), 0700);
  if (upload) close(open(uploaded.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  read_text(in, [&](json_t** err, char* out) {
    return kestro_jrpc_utils_retrieve_input_db_filename(in.object, err, in.name, out, in.length);
  });
  if (!upload) return;
  unlink(uploaded.c_str());
  unlink(renamed.c_str());
}

template <class Value, class Read>
void read_value(Read read, Value empty) {
  Value value{};
  Explanation explanation;
  const int32_t status = read(explanation.place(), &value);
  explanation.check(status);
  require(status == 0 || value == empty, "no value is left after a failure");
}

void read_numbers(const Parameters& in) {
  for (const auto reader : number_readers) {
    read_value<int32_t>([&](json_t** err, int32_t* out) { return reader(in.object, err, in.name, out); }, 0);
  }
  read_value<bool>(
      [&](json_t** err, bool* out) { return kestro_jrpc_utils_parse_input_bool_val(in.object, err, in.name, out); },
      false);
  read_value<uint64_t>(
      [&](json_t** err, uint64_t* out) { return kestro_jrpc_utils_parse_input_uint64_t(in.object, err, in.name, out); },
      0);
  read_value<kestro_data_secure_options>(
      [&](json_t** err, kestro_data_secure_options* out) {
        return kestro_jrpc_utils_parse_input_secure_option(in.object, err, in.name, out);
      },
      KESTRO_DATA_SECURE_CURRENT);
  Explanation explanation;
  float real = 1;
  const int32_t status = kestro_jrpc_utils_parse_input_float(in.object, explanation.place(), in.name, &real);
  explanation.check(status);
  require(status == 0 || real == 0, "no value is left after a failure");
}

// Borrowed members, of whatever type.
void read_members(const Parameters& in) {
  for (const auto reader : {kestro_jrpc_utils_parse_input_bool, kestro_jrpc_utils_parse_input_array}) {
    Explanation explanation;
    json_t* member = nullptr;
    explanation.check(reader(in.object, explanation.place(), in.name, &member));
    require(member == json_object_get(in.object, in.name), "the member is the object's");
  }
}

template <class Port, class Read>
void read_ports(const Parameters& in, Read read) {
  const auto room = static_cast<size_t>(in.length % 4);
  const Owned<Port, std::free> ports(static_cast<Port*>(calloc(room + 1, sizeof(Port))));
  memset(static_cast<void*>(&ports.get()[room]), '?', sizeof(Port));  // not the reader's
  Explanation explanation;
  int32_t count = -1;
  explanation.check(read(in.object, explanation.place(), in.name, ports.get(), &count, static_cast<int32_t>(room)));
  require(count >= 0 && count <= static_cast<int32_t>(room), "there are no more ports than there is room for");
  const auto* const behind = reinterpret_cast<const char*>(&ports.get()[room]);
  require(std::count(behind, behind + sizeof(Port), '?') == sizeof(Port), "nothing is written behind the room");
}

void read_lists(const Parameters& in) {
  read_ports<kestro_data_port>(in, kestro_jrpc_utils_retrieve_input_ports);
  read_ports<kestro_onu_port_hardware_info_t>(in, kestro_jrpc_utils_retrieve_input_ports_hardware);

  const std::vector<int32_t> nothing(KESTRO_DATA_MAX_VLANS_PER_PORT);
  std::vector<int32_t> vlans(nothing);
  int32_t count = -1;
  const int32_t status = kestro_jrpc_utils_retrieve_input_vlan_ids(in.object, nullptr, in.name, vlans.data(), &count);
  if (status == 0) {
    const auto used = static_cast<size_t>(count);
    std::sort(vlans.begin(), vlans.begin() + count);
    require(used <= vlans.size() && std::adjacent_find(vlans.begin(), vlans.begin() + count) == vlans.begin() + count,
            "VLANs are not repeated");
    require(used == 0 || (vlans[0] >= 1 && vlans[used - 1] <= 4050), "VLANs are within their range");
  }

  kestro_mac_filter* raw = nullptr;
  int32_t n_filters = -1;
  Explanation explanation;
  const int32_t read =
      kestro_jrpc_utils_retrieve_input_mac_filters(in.object, explanation.place(), in.name, &raw, &n_filters, 3, 4);
  explanation.check(read);
  if (read != 0) return;
  const Owned<kestro_mac_filter, std::free> filters(raw);
  require(filters->oec_num == 3 && filters->port_num == 4, "a filter knows its port");
}

void read_dhcp(json_t* object) {
  address_pool pool{};
  error err{};
  const int32_t status = kestro_jrpc_utils_parse_service_dhcp(object, &pool, &err);
  require(status == 0 || status == -4, "0 or -4");
  require((status == 0) == (err.msg[0] == '\0'), "a reason comes with a failure");
  const std::string_view reason = err.msg;
  const bool owned = status == 0 || (reason.starts_with("static lease") && reason.ends_with("has invalid format"));
  if (owned) {
    require(pool.static_leases != nullptr, "leases are there, were it none");
    free(pool.static_leases);
  }
}

// Texts that are too long for their field end the process, by contract; they are left out here.
void read_router(json_t* object) {
  static constexpr std::array<std::pair<const char*, size_t>, 4> fields{
      {{"mac_addr", 19}, {"sw_version", 63}, {"credentials", 63}, {"model", 63}}};
  for (const auto& [name, longest] : fields) {
    const char* const value = json_string_value(json_object_get(object, name));
    if (value != nullptr && strlen(value) > longest) return;
  }
  router_cfg router{};
  const int32_t status = kestro_json_parse_rcfg_init_vals(&router, object);
  require(status == (json_is_object(object) ? 0 : -1), "any object will do");
  const Text text(json_dumps(object, JSON_ENCODE_ANY));
  router_cfg again{};
  require(kestro_json_parse_rcfg_init_vals_from_str(&again, text.get()) == status, "and its text");
  require(strcmp(router.model, again.model) == 0 && strcmp(router.mac_addr, again.mac_addr) == 0,
          "with the same in it");
}

void read_answer(const Parameters& in, json_t* root) {
  int32_t code = -1;
  const int32_t status = kestro_jrpc_utils_api_decode_api_result(root, &code);
  require(status == 0 || code == (root != nullptr ? 0 : -1), "no result is left after a failure");

  const Text out = exact(std::string(static_cast<size_t>(in.length), '?'));
  json_t* const list = json_object_get(root, in.name);
  if (kestro_jrpc_utils_api_get_string_from_array(list, in.length % 3, out.get(), in.length) == 0) {
    require(in.length == 0 || memchr(out.get(), '\0', static_cast<size_t>(in.length)) != nullptr, "it is terminated");
  }
  std::array<char*, 2> buffers{out.get(), out.get()};
  const int32_t all = kestro_jrpc_utils_retrieve_string_array(root, in.name, buffers.data(), 2, in.length);
  require(all != 0 || json_array_size(list) >= 2, "there are as many as were asked for");
  require(out.get()[in.length] == '\0', "nothing is written behind the buffer");
}

void write_result(json_t* root, const char* text) {
  const Json explanation(kestro_jrpc_utils_simple_error_obj(text));
  const Json array(json_array());
  require((kestro_jrpc_utils_append_string_array(array.get(), text) == 0) == (explanation != nullptr),
          "UTF-8 can be written, anything else not");
  // Anything else than an object or an array cannot be encoded, and ends the process, by contract.
  if (!json_is_object(root) && !json_is_array(root)) return;
  const Text encoded(kestro_jrpc_utils_dumps_validate(json_incref(root)));
  const Json again(json_loads(encoded.get(), 0, nullptr));
  require(json_equal(again.get(), root), "what was written is what was to be written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  choose_log_level(input.byte());
  const int32_t length = input.byte();
  const Text text = exact(input.rest());
  const Json root(json_loads(text.get(), JSON_REJECT_DUPLICATES | JSON_DECODE_ANY, nullptr));
  const char* const first = json_object_iter_key(json_object_iter(root.get()));
  const Parameters in{.object = root.get(), .name = first != nullptr ? first : "value", .length = length};

  read_texts(in);
  read_db_filename(in);
  read_numbers(in);
  read_members(in);
  read_lists(in);
  read_dhcp(root.get());
  read_router(root.get());
  read_answer(in, root.get());
  write_result(root.get(), text.get());
  return 0;
}
