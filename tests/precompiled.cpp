// The headers that tests/CMakeLists.txt names are compiled once, for this file; the tests take them over.
