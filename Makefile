# The commands of everyday. Each installs what Debian packages it needs, builds, and does what it says.

jobs := $(shell nproc)
SECONDS ?= 20
MINUTES ?= 2

.PHONY: help deps build demo up test check coverage fuzz soak bench clean

help:
	@echo "make demo      build, start the appliance on loopback, play a session of kestroctl, stop"
	@echo "make up        build, run the appliance on loopback until Control-C, say how to call it"
	@echo "make test      build and run the whole test suite"
	@echo "make check     format, clang-tidy, cppcheck, gcc's analyzer, the units"
	@echo "make coverage  which lines and branches of the library the tests reach"
	@echo "make fuzz      search for inputs that break something, SECONDS=20 for each target"
	@echo "make soak      run the appliance under load for MINUTES=2 while one thing after the other fails"
	@echo "make bench     measure the library beside the bare libraries; the report is build/bench/report.json"
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

check: build
	@scripts/static.sh build/dev

coverage: deps
	@scripts/coverage.sh

fuzz: deps
	@scripts/fuzz.sh $(SECONDS)

soak: build
	@scripts/soak.py build/dev --minutes $(MINUTES) --seed $$(date +%s)

bench:
	@scripts/deps.sh bench
	@scripts/bench.sh

clean:
	rm -rf build
