# Corvane: `make` builds build/dist; `make test`, `make demo`, `make bench`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
BENCH      ?=
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps build test unit-asan demo bench clean

all: build

deps:
	@scripts/install-deps build

build: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

# Everything: unit, end-to-end, corpus and fuzz tests, then the unit tests
# again under AddressSanitizer and UndefinedBehaviorSanitizer.
test:
	@scripts/install-deps build test
	@$(MAKE) --no-print-directory build
	@cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCORVANE_SANITIZE=ON >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@scripts/run-tests $(BUILD) $(ASAN_BUILD)

demo:
	@scripts/install-deps build demo
	@$(MAKE) --no-print-directory build
	@examples/run-demo $(BUILD)

bench:
	@scripts/install-deps build bench
	@$(MAKE) --no-print-directory build
	@scripts/run-bench $(BUILD) $(BENCH)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
