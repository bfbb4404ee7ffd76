# The commands of everyday. Each installs what Debian packages it needs, builds, and does what it says.

jobs := $(shell nproc)

.PHONY: help deps build demo up test clean

help:
	@echo "make demo    build, start the appliance on loopback, play a session of kestroctl, stop"
	@echo "make up      build, run the appliance on loopback until Control-C, say how to call it"
	@echo "make test    build and run the whole test suite"
	@echo "make build   build only (into build/dev)"
	@echo "make clean   remove everything that was built"

deps:
	@scripts/deps.sh

build: deps
	@cmake --preset dev >/dev/null
	@cmake --build --preset dev --parallel $(jobs)

demo: build
	@scripts/demo.sh build/dev

up: build
	@scripts/up.sh build/dev

test: build
	@ctest --preset dev --parallel $(jobs)

clean:
	rm -rf build
