# Entry points for a fresh machine: each target installs what is missing,
# configures and builds before it does its own work.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: deps configure build test demo bench clean format

deps:
	bash scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	bash scripts/demo.sh $(BUILD)

bench: deps
	cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DKORVEX_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD)-bench -j $(JOBS)
	bash scripts/bench.sh $(BUILD)-bench

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(BUILD)-bench $(BUILD)-asan $(BUILD)-tsan
