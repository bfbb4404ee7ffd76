/* A program outside the tree, on the installed library. */
#include <kestro.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  puts(kestro_error_decode(-20));
  return strcmp(kestro_error_decode(-20), "The input to an internal function was null") != 0;
}
