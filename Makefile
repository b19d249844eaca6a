# The two commands of the README. Both install what is missing first (apt, as root or with sudo).
#
#   make listen   builds and listens
#   make test     builds and runs every test
#   make bench    measures beside other programs: docs/performance.md and .svg, some 4 minutes
#   make hearing  measures how far the receivers hear: docs/hearing.md and its pictures, some 2 hours
#   make clean    removes build/

JOBS ?= $(shell nproc)
BUILD := build/release
.DEFAULT_GOAL := listen
.PHONY: listen test bench hearing build clean

build/packages-%: cmake/packages.txt cmake/install-packages.sh
	cmake/install-packages.sh $*
	@mkdir -p build && touch $@

build: build/packages-build
	cmake --preset release -DSORVEL_TESTS=OFF -B $(BUILD)-user
	cmake --build $(BUILD)-user -j $(JOBS)

listen: build
	$(BUILD)-user/tools/sorvel listen --or-demo

test: build/packages-build build/packages-test
	cmake --preset release
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure --no-tests=error -j $(JOBS)

bench: build/packages-build build/packages-bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS) --target sorvel listening_bench analysis_times
	python3 bench/compare.py --build build/bench --output docs

hearing: build/packages-build build/packages-bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS) --target hearing
	python3 bench/hearing/report.py --build build/bench --output docs

clean:
	rm -rf build
