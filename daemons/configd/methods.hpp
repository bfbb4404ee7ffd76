// The methods of the service.
#ifndef KESTRO_CONFIGD_METHODS_HPP
#define KESTRO_CONFIGD_METHODS_HPP

#include "common/methods.hpp"
#include "configd/context.hpp"

namespace kestro::configd {

daemons::Methods methods();

// What the handlers work with from now on; null when it goes away. Handlers are plain functions and get no other hint.
void serve_with(Context* context);

}  // namespace kestro::configd

#endif
