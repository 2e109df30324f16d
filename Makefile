# kp120: thin front of the CMake build.  `make run` and `make test` install
# what is missing, build, and run; everything they write stays under build*/.
BUILD ?= build
ASAN_BUILD ?= build-asan
BUILD32 ?= build-32
JOBS ?= $(shell nproc)
# Seconds each fuzz target runs under `make fuzz`; FUZZ_TARGETS picks some.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=
CMAKE_FLAGS ?=

.PHONY: deps configure build run test test-32 bench fuzz coverage format clean install package test-armhf test-arm64

deps:
	@tools/deps.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: deps configure
	cmake --build $(BUILD) -j $(JOBS)

run: build
	tools/demo.sh $(BUILD)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	@if [ -f tools/test-asan.sh ]; then tools/test-asan.sh $(ASAN_BUILD); fi
	JOBS=$(JOBS) tools/test-32.sh $(BUILD32)

# The 32-bit x86 build of everything but benchmarks and fuzzers, and its tests.
test-32: deps
	JOBS=$(JOBS) tools/test-32.sh $(BUILD32)

bench: build
	tools/bench.sh $(BUILD)

fuzz: deps
	@if [ -f tools/fuzz.sh ]; then FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) tools/fuzz.sh $(FUZZ_TARGETS); else echo "no fuzz targets yet"; fi

coverage: deps
	@if [ -f tools/coverage.sh ]; then JOBS=$(JOBS) tools/coverage.sh; else echo "no coverage script yet"; fi

# Cross builds for ARM, the tests run under qemu-user.  Not part of `make
# test`: under emulation they take longer than CI allows.
test-armhf test-arm64: test-%:
	tools/deps-cross.sh $*
	tools/sysroot.sh $* build-sysroot-$*
	cmake -S . -B build-$* -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-$*.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DKP120_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-$* -j $(JOBS)
	cd build-$* && ctest --output-on-failure -j $(JOBS)

# Installs under PREFIX (default /usr/local); DESTDIR is honoured.
PREFIX ?= /usr/local
install: build
	DESTDIR=$(DESTDIR) cmake --install $(BUILD) --prefix "$(PREFIX)"

# Debian packages (libkp120-1, libkp120-dev, kp120) under $(BUILD)/packages.
package: build
	tools/package-deb.sh $(BUILD) $(BUILD)/packages

format:
	find include src host cli tests bench fuzz -name '*.[ch]pp' -o -name '*.h' -o -name '*.c' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BUILD32) build-cov build-fuzz
