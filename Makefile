# Thin front over CMake. `make test` is what CI runs; every target first makes
# sure the Debian packages the build needs are there.

PACKAGES := cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev libpcre3-dev \
            libboost-dev libboost-filesystem-dev libboost-system-dev libx11-dev \
            python3-can clang libclang-rt-14-dev zlib1g-dev \
            libdeflate-dev libpcap0.8-dev iproute2 tcpdump tcpreplay tshark python3-scapy
JOBS       ?= $(shell nproc)
BUILD_TYPE ?= RelWithDebInfo
CMAKE_ARGS ?=

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all setup configure build test demo asan tsan test-asan test-tsan bench fuzz sample clean install-sim uninstall-sim

all: build

# Quiet and idempotent: apt-get runs only when something is missing. A fresh
# machine has no package lists, hence the update first.
setup:
	@missing=$$(for p in $(PACKAGES); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "make setup: installing" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing >/dev/null; \
	fi

build/CMakeCache.txt: | setup
	cmake -S . -B build -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_ARGS)

configure: setup build/CMakeCache.txt

build: configure
	cmake --build build -j $(JOBS)

test: build
	ctest --test-dir build --output-on-failure -j $(JOBS)

# The main job on the simulated buses: the bundled drive (CAN and Ethernet in
# one pcapng) replayed in sync, each bus on one channel, while another
# channel of each bus is recorded, in one engine, then the recording
# compared with the original.
demo: build
	tools/with-sim-bus build/bin/veldor demo examples/data/sample_drive.pcapng

# Sanitizer builds live in folders of their own so that they never mix with
# the normal build.
asan: setup
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVELDOR_ASAN=ON $(CMAKE_ARGS)
	cmake --build build-asan -j $(JOBS)

tsan: setup
	cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELDOR_TSAN=ON $(CMAKE_ARGS)
	cmake --build build-tsan -j $(JOBS)

test-asan: asan
	ctest --test-dir build-asan --output-on-failure -j $(JOBS)

test-tsan: tsan
	ctest --test-dir build-tsan --output-on-failure -j $(JOBS)

bench: build
	@for b in build/bench/bench_*; do \
	  case "$$b" in */bench_round_trip) ;; *) [ -x "$$b" ] && "$$b";; esac; done
	tools/with-sim-bus build/bench/bench_round_trip

# Each fuzz target for FUZZ_SECONDS (default 300) from its seed corpus; the
# test suite gives each only a few seconds.
FUZZ_SECONDS ?= 300
fuzz: build
	@while read -r program seeds; do \
	  [ -n "$$program" ] || continue; \
	  echo "== $$(basename $$program), $(FUZZ_SECONDS) s"; \
	  tests/fuzz/run_fuzz.sh "$$program" $(FUZZ_SECONDS) "$$seeds" build/fuzz/artifacts || exit 1; \
	done < build/fuzz-targets

# The simulated bus access libraries at the package's fixed paths. Never replaces
# or removes a library that it did not install itself (tools/install-sim).
install-sim: build
	$(SUDO) tools/install-sim install build/sim-libraries

uninstall-sim:
	$(SUDO) tools/install-sim uninstall build/sim-libraries

# Regenerates the sample recording in examples/data.
sample: configure
	cmake --build build --target sample_recording

clean:
	rm -rf build build-asan build-tsan
