# The two commands of the README. Both install what is missing first (apt, as root or with sudo).
#
#   make listen   builds and listens
#   make test     builds and runs every test
#   make bench    measures beside other programs: docs/performance.md and .svg, some 4 minutes
#   make hearing  measures how far the receivers hear: docs/hearing.md and its pictures, some 2 hours
#   make pictures draws the pictures of docs/inspect.md, some seconds
#   make web      builds the npm package and the page in web/dist, for browsers
#   make web-serve  ... and serves the page at http://127.0.0.1:8765
#   make web-test   ... and tests them in a browser, against the command as well
#   make python   builds the Python package's wheel in build/python
#   make python-test   ... installs it into a new venv and tests it there
#   make python-bench  ... and measures it beside C
#   make packages       Debian packages in build/deb: sorvel, libsorvel1, libsorvel-dev
#   make packages-test  ... and uses them in a fresh Debian root
#   make clean    removes build/ and what `make web` made

JOBS ?= $(shell nproc)
PYTHON ?= /usr/bin/python3
BUILD := build/release
.DEFAULT_GOAL := listen
.PHONY: listen test bench hearing pictures web web-serve web-test python python-test python-bench packages packages-test build clean

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

pictures: build/packages-build build/packages-bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS) --target sorvel hearing
	bench/draw_inspections.sh build/bench

web: build/packages-web
	@mkdir -p build
	web/build.sh $(CURDIR)/build/web

web-serve: web
	node web/serve.mjs 8765

# The command is made here too: tests hear what it sends, and the other way round.
web-test: web build build/packages-test web/node_modules
	cd web && SORVEL=$(CURDIR)/$(BUILD)-user/tools/sorvel node --test test/*.test.mjs

web/node_modules: web/package-lock.json
	command -v npm >/dev/null || cmake/install-packages.sh npm
	cd web && npm ci --no-audit --no-fund
	@touch $@

python: build/packages-python
	rm -f build/python/*.whl
	JOBS=$(JOBS) $(PYTHON) -m pip wheel --no-build-isolation --no-index --no-deps --quiet -w build/python ./python

# Run elsewhere: the sorvel/ of this folder is not the package, nor is what setuptools leaves in build/python.
python-test: python
	$(PYTHON) -m venv --clear --system-site-packages build/python/venv
	build/python/venv/bin/python -m pip install --no-index --quiet build/python/sorvel-*.whl
	cd build/python/venv && bin/python -m pytest -c $(CURDIR)/python/pyproject.toml $(CURDIR)/python/tests

python-bench: python-test
	@folder=build/python/cmake-$$($(PYTHON) -c 'import sysconfig; print(sysconfig.get_config_var("SOABI"))') && \
	cmake --build $$folder --target sorvel_python_blocks && \
	build/python/venv/bin/python python/bench/blocks.py $$folder/python

packages: build/packages-build build/packages-deb
	packaging/build.sh build/deb

packages-test: packages
	tests/packaging/run.sh build/deb $(CURDIR)

clean:
	rm -rf build web/dist
