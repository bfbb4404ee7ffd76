#ifndef KESTRO_MQ_HPP
#define KESTRO_MQ_HPP

#include <cstdint>

namespace kestro {

// Whether nanomsg may be given this address for this transport: 0, -20 or -34.
int32_t kestro_mq_validate_tm_type(int32_t transport_type, const char* sp_addr) noexcept;

}  // namespace kestro

#endif
