# Convenience entry points; everything real is CMake + Ninja + CTest.
#   make demo    build the command-line host and run its demo exchange
#   make test    install missing packages, then build and test with g++ (Debug, and Release with
#                the installed tree, the host projects and the .debs), clang (ASan+UBSan, TSan)
#                and mingw-w64 x64 and x86 (under Wine); one line per configuration and totals
#   make package Release builds (as a consumer builds: warnings not errors):
#                build/package-linux/packages/*.deb (libwapiwps1, libwapiwps-dev,
#                wapiwps-tools) and build/package-win{64,32}/packages/*.zip
#   make install-wireshark-plugin   copy the WAPI-flavour dissector to the personal Lua plugin
#                folder (~/.local/lib/wireshark/plugins)
#   make bench   build and run the benchmarks (Release)
#   make fuzz    build the fuzz targets with clang + libFuzzer and run each for FUZZ_SECONDS
#   make soak    SOAK_COUNT whole exchanges in every mode under ASan+LSan, then
#                SOAK_VALGRIND_COUNT under valgrind memcheck (zero errors, zero bytes lost)
JOBS ?= 2
BUILD_TYPE ?= Debug
FUZZ_SECONDS ?= 60
SOAK_COUNT ?= 10000
SOAK_VALGRIND_COUNT ?= 1000
export JOBS BUILD_TYPE

PLUGIN_DIR ?= $(HOME)/.local/lib/wireshark/plugins

.PHONY: all deps test test-linux test-release test-asan test-tsan test-windows test-windows32 \
	demo bench fuzz soak package install-wireshark-plugin clean

all: demo

deps:
	scripts/install-deps.sh

test: deps
	scripts/test-all.sh

test-linux test-release test-asan test-tsan test-windows test-windows32: deps
	CONFIGS=$(@:test-%=%) scripts/test-all.sh

# The demo has its own build folder without tests, so a fresh machine needs only a few packages.
demo:
	scripts/install-deps.sh demo
	cmake -G Ninja -S . -B build/demo -DCMAKE_BUILD_TYPE=Release -DWAPIWPS_BUILD_TESTS=OFF >/dev/null
	ninja -C build/demo -j$(JOBS) wapiwps_cli
	build/demo/bin/wapiwps demo

# The tools stay on: bench_exchange runs whole exchanges against the reference registrar.
bench:
	cmake -G Ninja -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DWAPIWPS_BUILD_BENCH=ON \
		-DWAPIWPS_BUILD_TESTS=OFF -DWAPIWPS_BUILD_TOOLS=ON >/dev/null
	ninja -C build/bench -j$(JOBS)
	@set -e; for b in build/bench/bin/bench_*; do echo "== $$b"; $$b; done

fuzz:
	cmake -G Ninja -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DWAPIWPS_BUILD_FUZZ=ON \
		-DWAPIWPS_SANITIZE=ON -DWAPIWPS_BUILD_TESTS=OFF -DWAPIWPS_BUILD_TOOLS=OFF >/dev/null
	ninja -C build/fuzz -j$(JOBS)
	@set -e; for f in build/fuzz/bin/fuzz_*; do \
		t=$$(basename $$f); c=fuzz/corpus/$${t#fuzz_}; w=build/fuzz/corpus/$${t#fuzz_}; \
		d=-dict=fuzz/wps.dict; [ $$t = fuzz_securechip_answer ] && d=; \
		mkdir -p $$w $$c; echo "== $$t for $(FUZZ_SECONDS) s"; \
		$$f -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 $$d $$w $$c; done

soak: deps
	cmake -G Ninja -S . -B build/asan -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DCMAKE_C_COMPILER=clang \
		-DCMAKE_CXX_COMPILER=clang++ -DWAPIWPS_SANITIZE=ON >/dev/null
	ninja -C build/asan -j$(JOBS) soak
	ASAN_OPTIONS=detect_leaks=1 build/asan/bin/soak $(SOAK_COUNT)
	cmake -G Ninja -S . -B build/linux -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DCMAKE_C_COMPILER=gcc \
		-DCMAKE_CXX_COMPILER=g++ >/dev/null
	ninja -C build/linux -j$(JOBS) soak
	valgrind --quiet --error-exitcode=1 --leak-check=full \
		--errors-for-leak-kinds=definite,indirect,possible build/linux/bin/soak $(SOAK_VALGRIND_COUNT)

clean:
	rm -rf build
