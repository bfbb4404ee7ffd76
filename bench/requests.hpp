// Requests, and what answers them by hand.
#ifndef KESTRO_BENCH_REQUESTS_HPP
#define KESTRO_BENCH_REQUESTS_HPP

#include <string>
#include <vector>

#include "kestro_jrpc.h"
#include "work.hpp"

namespace kestro::bench {

// A method table of `methods` rows; the rows ahead of the last share its handler and most of its name, as those of one
// service do.
class Methods {
 public:
  using Handler = int32_t (*)(json_t* params, json_t** result, json_t** err_data);
  Methods(size_t methods, Handler handler);

  [[nodiscard]] const std::string& name(size_t row) const { return names_.at(row); }
  [[nodiscard]] const std::string& last() const { return names_.back(); }
  [[nodiscard]] kestro_jrpc_mapping_t* table() { return rows_.data(); }

 private:
  std::vector<std::string> names_;
  std::vector<kestro_jrpc_mapping_t> rows_;
};

// A request of exactly `size` bytes: what is missing is filled up in "params". At least some 110 bytes.
std::string request_of(size_t size, const std::string& method);

// Evaluates a request against the table and frees the response.
Repeat evaluation(std::string request, Methods methods);

// The same without the library: loads, the handler, the response object, its text, frees.
Repeat bare_evaluation(std::string request, Methods::Handler handler);

// Handlers. A port's state; and a list of them, as long as the `list_length` that was set last.
int32_t answer_port(json_t* params, json_t** result, json_t** err_data);
int32_t answer_list(json_t* params, json_t** result, json_t** err_data);
extern size_t list_length;
// The bytes that each element of the list adds to the response.
size_t element_size();

}  // namespace kestro::bench

#endif
