# Set-up, build and test on a Debian machine (run as root for the install step).
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
PACKAGES = cmake ninja-build g++ libgtest-dev libgmock-dev zlib1g-dev librapidxml-dev

.PHONY: all deps build test demo fuzz sanitize tsan valgrind clean

all: build

deps:
	@missing=""; for p in $(PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

demo: build
	@mkdir -p out
	$(BUILD_DIR)/tools/tessel export examples/rigged_arm.fbx out/rigged_arm.ts2 --animdefs examples/rigged_arm_animdefs.xml \
	  && $(BUILD_DIR)/tools/tessel inspect out/rigged_arm.ts2

# Sanitized build of everything, tests included.
sanitize: deps
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTESSEL_SANITIZE=ON -DTESSEL_BUILD_BENCH=OFF
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

# ThreadSanitizer build of everything, tests included; any race fails the test
# that ran into it.
tsan: deps
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTESSEL_TSAN=ON -DTESSEL_BUILD_BENCH=OFF
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -j $(JOBS)

# The command-line tests with every tessel process under memcheck: a
# memory error fails the process (exit status 99) and its log is kept in
# $(BUILD_DIR)/valgrind; any error there fails the target.
VALGRIND = valgrind -q --error-exitcode=99 --leak-check=no --log-file=$(CURDIR)/$(BUILD_DIR)/valgrind/%p.log
valgrind: build
	@command -v valgrind >/dev/null || { echo "valgrind is not installed (apt-get install valgrind)"; exit 1; }
	rm -rf $(BUILD_DIR)/valgrind && mkdir -p $(BUILD_DIR)/valgrind
	cd $(BUILD_DIR) && TESSEL_TEST_WRAPPER="$(VALGRIND)" ctest --output-on-failure -j $(JOBS) -L tools
	@if grep -l . $(BUILD_DIR)/valgrind/*.log >/dev/null 2>&1; then \
	  echo "memcheck found errors:"; grep -h . $(BUILD_DIR)/valgrind/*.log | head -50; exit 1; \
	else echo "memcheck: no errors in $$(ls $(BUILD_DIR)/valgrind | wc -l) tessel runs"; fi

# libFuzzer programs (clang); run them by hand, e.g. build-fuzz/fuzz/fuzz_fbx_binary fuzz/corpus/fbx_binary
fuzz:
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTESSEL_FUZZ=ON -DTESSEL_BUILD_TESTS=ON -DTESSEL_BUILD_BENCH=OFF
	cmake --build build-fuzz -j $(JOBS) --target $$(cd fuzz && ls fuzz_*.cpp | sed 's/\.cpp//')

clean:
	rm -rf $(BUILD_DIR) build-asan build-tsan build-fuzz out
