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

# The Debian packages each target installs when they are missing
# (tools/deps.sh names the sets): `make run` the build set alone.
SETS ?= build
# KP120_TESTS and KP120_BENCH of the main build: AUTO builds them when
# their library is installed; `make test` and `make bench` ask for theirs.
TESTS ?= AUTO
BENCH ?= AUTO
# A build directory is configured afresh whenever these change
# (tools/configure.sh keeps their stamp in it).
CONFIGURE_ARGS = -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKP120_TESTS=$(TESTS) -DKP120_BENCH=$(BENCH) $(CMAKE_FLAGS)

.PHONY: deps configure build run test test-32 test-tsan bench fuzz coverage format clean install package \
	test-armhf test-arm64 bench-armhf bench-arm64 fresh-machine

deps:
	@tools/deps.sh $(SETS)

configure:
	@tools/configure.sh $(BUILD) $(CONFIGURE_ARGS)

build: deps
	@tools/configure.sh $(BUILD) $(CONFIGURE_ARGS)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	tools/demo.sh $(BUILD)

# Three passes: the suite, the suite under the sanitizers, the suite for
# 32-bit x86.  Each runs whatever another one did; the failed ones are named
# at the end.
test: SETS = build test
test: TESTS = ON
test: build
	@failed=""; \
	(cd $(BUILD) && ctest --output-on-failure -j $(JOBS)) || failed="$$failed tests"; \
	tools/test-asan.sh $(ASAN_BUILD) || failed="$$failed sanitizers"; \
	$(MAKE) --no-print-directory test-32 || failed="$$failed 32-bit"; \
	if [ -n "$$failed" ]; then echo "make test: FAILED:$$failed"; exit 1; fi; \
	echo "make test: all three passes passed"

# The whole suite under ThreadSanitizer (clang), in build-tsan.
TSAN_BUILD ?= build-tsan
test-tsan:
	@tools/deps.sh build test
	JOBS=$(JOBS) tools/test-tsan.sh $(TSAN_BUILD)

# The 32-bit x86 build of everything but benchmarks and fuzzers, and its
# tests, against an i386 sysroot (tools/test-32.sh).
test-32:
	@tools/deps.sh build test cross-i386
	JOBS=$(JOBS) tools/test-32.sh $(BUILD32)

bench: SETS = build bench
bench: BENCH = ON
bench: build
	tools/bench.sh $(BUILD)

fuzz:
	@tools/deps.sh build fuzz
	FUZZ_SECONDS=$(FUZZ_SECONDS) JOBS=$(JOBS) tools/fuzz.sh $(FUZZ_TARGETS)

coverage:
	@tools/deps.sh build test coverage
	JOBS=$(JOBS) tools/coverage.sh

# Cross builds for ARM against a sysroot (tools/sysroot.sh), the tests and
# benchmarks run under qemu-user.  Not part of `make test` (README: how
# long they take).  `make bench-armhf` runs the ABI call benchmark.
QEMU_armhf = qemu-arm
QEMU_arm64 = qemu-aarch64
CROSS_ARGS = -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchain-$*.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	-DKP120_TESTS=ON -DKP120_BENCH=ON $(CMAKE_FLAGS)
test-armhf test-arm64: test-%:
	@tools/deps.sh build test cross-$*
	tools/sysroot.sh $* build-sysroot-$*
	tools/configure.sh build-$* $(CROSS_ARGS)
	cmake --build build-$* -j $(JOBS)
	cd build-$* && ctest --output-on-failure -j $(JOBS)

bench-armhf bench-arm64: bench-%:
	@tools/deps.sh build cross-$*
	tools/sysroot.sh $* build-sysroot-$*
	tools/configure.sh build-$* $(CROSS_ARGS)
	cmake --build build-$* -j $(JOBS) --target bench_abi_bench
	$(QEMU_$*) -L build-sysroot-$* build-$*/bench_abi_bench --benchmark_min_time=0.2

# A fresh Debian 12 machine (debootstrap, chroot) runs `make run` and
# `make test` from a clean clone of HEAD (tools/fresh-machine.sh).
fresh-machine:
	tools/fresh-machine.sh

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
	rm -rf $(BUILD) $(ASAN_BUILD) $(BUILD32) build-cov build-fuzz build-armhf build-arm64
