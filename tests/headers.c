/* The whole library from C: it compiles as C11, links, and answers. */
#include "kestro.h"

#include <string.h>

int main(void) {
  if (strcmp(kestro_error_decode(-20), "The input to an internal function was null") != 0) return 1;
  if (kestro_error_strings[81] != NULL) return 1;
  str_t* text = str_init(16);
  str_printf(text, "%s-%d", "port", 7);
  const int same = strcmp(str_s(text), "port-7");
  str_free(text);
  return same;
}
