# The commands of everyday. Each installs what Debian packages it needs, builds, and does what it says.

jobs := $(shell nproc)
MINUTES ?= 2

.PHONY: help deps build demo test soak clean

help:
	@echo "make demo    build, start router and service on loopback, send the example requests, stop"
	@echo "make test    build and run the whole test suite"
	@echo "make soak    run the appliance under load for MINUTES=2 while one thing after the other fails"
	@echo "make build   build only (into build/dev)"
	@echo "make clean   remove everything that was built"

deps:
	@scripts/deps.sh

build: deps
	@cmake --preset dev >/dev/null
	@cmake --build --preset dev --parallel $(jobs)

demo: build
	@scripts/demo.sh build/dev

test: build
	@ctest --preset dev --parallel $(jobs)

soak: build
	@scripts/soak.py build/dev --minutes $(MINUTES) --seed $$(date +%s)

clean:
	rm -rf build
