# The commands of everyday. Each installs what Debian packages it needs, builds, and does what it says.

jobs := $(shell nproc)
SECONDS ?= 20

.PHONY: help deps build demo test fuzz clean
.PHONY: help deps build demo test bench clean
.PHONY: help deps build demo up test clean
MINUTES ?= 2

.PHONY: help deps build demo test soak clean

help:
	@echo "make demo    build, start the appliance on loopback, play a session of kestroctl, stop"
	@echo "make up      build, run the appliance on loopback until Control-C, say how to call it"
	@echo "make test    build and run the whole test suite"
	@echo "make fuzz    search for inputs that break something, SECONDS=20 for each target"
	@echo "make bench   measure the library beside the bare libraries; the report is build/bench/report.json"
	@echo "make soak    run the appliance under load for MINUTES=2 while one thing after the other fails"
	@echo "make build   build only (into build/dev)"
	@echo "make clean   remove everything that was built"
.PHONY: help deps build demo test check coverage clean

help:
	@echo "make demo      build, start router and service on loopback, send the example requests, stop"
	@echo "make test      build and run the whole test suite"
	@echo "make check     format, clang-tidy, cppcheck, gcc's analyzer, the units"
	@echo "make coverage  which lines and branches of the library the tests reach"
	@echo "make build     build only (into build/dev)"
	@echo "make clean     remove everything that was built"

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

fuzz: deps
	@scripts/fuzz.sh $(SECONDS)
bench:
	@scripts/deps.sh bench
	@scripts/bench.sh
check: build
	@scripts/static.sh build/dev

coverage: deps
	@scripts/coverage.sh
soak: build
	@scripts/soak.py build/dev --minutes $(MINUTES) --seed $$(date +%s)

clean:
	rm -rf build
