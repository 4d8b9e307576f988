# Cross build on Debian 12 with MinGW-w64; tests run under Wine through ctest.
BUILD_DIR := out/build
JOBS      ?= 2
CMAKE_ARGS := -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=Release
MAKEFLAGS  += --no-print-directory

.PHONY: all deps configure build test demo bench soak fuzz clean distclean

all: build

deps:
	bash tools/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) $(CMAKE_ARGS)

build: configure
	cmake --build $(BUILD_DIR) -j$(JOBS)

# Includes must point down the floors of the code before anything runs. The
# wineserver is started here, outside ctest's pipes, and the ctest fixture
# wine_up finds it running.
test: build
	bash tools/check-includes.sh
	bash tools/wine-up.sh
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j$(JOBS)

demo: build
	@if [ ! -f tools/demo.sh ]; then \
	    echo "make demo: tools/demo.sh is not built yet, so there is no backup cycle to run." >&2; \
	    exit 1; \
	fi
	bash tools/wine-up.sh
	bash tools/demo.sh

# The log benchmark's rotation is compared with gzip -9 on the Linux side, so
# it runs through bench/run.sh; every other program in bench/ runs as it is.
bench: configure
	bash tools/wine-up.sh
	cmake --build $(BUILD_DIR) --target bench_oci_bench bench_logs_bench bench_explore_bench bench_prepare_bench orasnap OCI -j$(JOBS)
	cd out/bin && ../../tools/wine-run.sh ./bench_oci_bench.exe
	cd out/bin && ../../tools/wine-run.sh ./bench_logs_bench.exe
	cd out/bin && ../../tools/wine-run.sh ./bench_explore_bench.exe
	cd out/bin && ../../tools/wine-run.sh ./bench_prepare_bench.exe
	BUILD_DIR=$(CURDIR)/$(BUILD_DIR) bash bench/run.sh

# Full backup cycles with random faults; the seed and the number of cycles can
# be given: make soak SOAK_ARGS="50 7".
SOAK_ARGS ?= 200
soak: configure
	bash tools/wine-up.sh
	cmake --build $(BUILD_DIR) --target soak -j$(JOBS)
	cd out/bin && ../../tools/wine-run.sh ./soak.exe $(SOAK_ARGS)

# Generated and mutated inputs through the exports; the seed and the number of
# inputs can be given: make fuzz FUZZ_ARGS="--seed 5 --inputs 20000".
FUZZ_ARGS ?= --inputs 100000
fuzz: configure
	bash tools/wine-up.sh
	cmake --build $(BUILD_DIR) --target fuzz -j$(JOBS)
	cd out/bin && ../../tools/wine-run.sh ./fuzz.exe $(FUZZ_ARGS)

clean:
	rm -rf $(BUILD_DIR) out/bin out/lib

# Also removes the fetched sources and the Wine prefix (after stopping its server).
distclean: clean
	if [ -d out/wineprefix ]; then WINEPREFIX="$(CURDIR)/out/wineprefix" /usr/lib/wine/wineserver -k || true; fi
	rm -rf out
