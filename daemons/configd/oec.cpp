// The edge switches of the unit.
#include <string>

#include "common/log.hpp"
#include "configd/handlers.hpp"
#include "kestro_data.h"

namespace kestro::configd {

namespace {

constexpr int32_t most_switches = 512;
constexpr const char* rows_of_switches =
    "SELECT number, model, mac_address, alias, description, cfg_pending FROM edge_switch";

json_t* encode(const Statement& row) {
  const int32_t model = row.integer(1);
  return json_pack("{s:s,s:s,s:s,s:s,s:s,s:i,s:b}", "oec_id", name_of_switch(row.integer(0)).c_str(), "model",
                   kestro_data_oec_model_name_enum_str[model], "mac_address", row.text(2).c_str(), "alias",
                   row.text(3).c_str(), "description", row.text(4).c_str(), "ports",
                   kestro_data_oec_num_of_ports[model], "cfg_pending", row.integer(5));
}

Json load_switch(const Database& database, int32_t number) {
  Statement row = database.prepare((std::string(rows_of_switches) + " WHERE number = ?1").c_str());
  if (!row.bind(number).step()) {
    throw Failure(status::no_such_switch, "there is no edge switch " + name_of_switch(number));
  }
  return Json(encode(row));
}

struct NewSwitch {
  int32_t number;
  int32_t model;
  std::string mac_address;
  std::string alias;
  std::string description;
};

NewSwitch read_new_switch(const Request& request) {
  return {.number = request.switch_number("oec_id"),
          .model = request.model("model"),
          .mac_address = request.device_mac_address("mac_address"),
          .alias = request.has("alias") ? request.alias("alias") : "",
          .description = request.has("description") ? request.description("description") : ""};
}

// The limit first: where it is reached every identifier is taken, and a client is better told of the limit.
void require_room_for(const Database& database, const NewSwitch& added) {
  if (database.number(0, "SELECT count(*) FROM edge_switch WHERE number <= ?1", most_switches) >= most_switches) {
    throw Failure(status::too_many_switches, "512 edge switches are registered");
  }
  if (database.number(0, "SELECT count(*) FROM edge_switch WHERE number = ?1", added.number) != 0) {
    throw Failure(status::switch_exists, name_of_switch(added.number) + " is registered already");
  }
  const int32_t holder = database.number(0, "SELECT number FROM edge_switch WHERE mac_address = ?1", added.mac_address);
  if (holder != 0) throw Failure(status::mac_exists, added.mac_address + " is that of " + name_of_switch(holder));
}

// Its ports are as the hardware has them without a word: enabled and local. The hardware is told soon.
void store(const Database& database, const NewSwitch& added) {
  database.write("INSERT INTO edge_switch (number, model, mac_address, alias, description) VALUES (?1, ?2, ?3, ?4, ?5)",
                 added.number, added.model, added.mac_address, added.alias, added.description);
  Statement insert = database.prepare("INSERT INTO port (switch_number, port_number) VALUES (?1, ?2)");
  for (int32_t port = 1; port <= kestro_data_oec_num_of_ports[added.model]; ++port) {
    insert.bind(added.number, port).run();
  }
}

}  // namespace

Json oec_register(Context& context, const Request& request) {
  const NewSwitch added = read_new_switch(request);
  Transaction transaction(context.database);
  require_room_for(context.database, added);
  store(context.database, added);
  // Nothing is stored that cannot be answered, so what may fail comes before the end.
  Json answer = load_switch(context.database, added.number);
  context.applier.forget(added.number);
  context.applier.tick();
  transaction.commit();
  daemons::log_info(name_of_switch(added.number) + ": registered, " + kestro_data_oec_model_name_enum_str[added.model] +
                    ", " + added.mac_address);
  return answer;
}

Json oec_list(Context& context, const Request& /*request*/) {
  Statement rows =
      context.database.prepare((std::string(rows_of_switches) + " WHERE number <= 512 ORDER BY number").c_str());
  Json list(json_array());
  while (rows.step()) json_array_append_new(list.get(), encode(rows));
  return list;
}

Json oec_get(Context& context, const Request& request) {
  return load_switch(context.database, request.switch_number("oec_id"));
}

Json oec_remove(Context& context, const Request& request) {
  const int32_t number = request.switch_number("oec_id");
  Transaction transaction(context.database);
  load_switch(context.database, number);
  context.database.write("DELETE FROM edge_switch WHERE number = ?1", number);
  transaction.commit();
  daemons::log_info(name_of_switch(number) + ": removed, with its ports");
  return nullptr;
}

}  // namespace kestro::configd
