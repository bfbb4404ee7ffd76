#!/usr/bin/env python3
"""The library can be loaded by a running program, which has little room left for the static memory of threads.

Usage: loaded_at_run_time.py LIBRARY
"""

import ctypes
import sys

library = ctypes.CDLL(sys.argv[1])
library.kestro_error_decode.restype = ctypes.c_char_p
if library.kestro_error_decode(0) is None:
    sys.exit("the loaded library does not answer")
