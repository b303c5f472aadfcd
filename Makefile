# The two commands of this repository:
#   make test   install what is missing, configure, build and run every test
#   make demo   the shadow copy demonstration: one shadow copy of E: told as a short story
#   make test-windows   cross-build for Windows (mingw-w64) and run the conformance suite under Wine
# PRESET selects the build: debug (default), release, asan or tsan.

PRESET ?= debug

.PHONY: test build configure bootstrap demo test-concurrency test-windows check-sources format clean

test: check-sources build
	ctest --preset $(PRESET)

build: configure
	cmake --build --preset $(PRESET)

configure: bootstrap
	cmake --preset $(PRESET)

bootstrap:
	@scripts/bootstrap

# The Windows build of the system folders and the platform conformance suite, run under Wine
# (scripts/wine-run). The first run creates the Wine prefix under build/windows.
test-windows: bootstrap check-sources
	cmake --preset windows
	cmake --build --preset windows
	ctest --preset windows

# The system folders use WCHAR, W() and pal/ headers only, so that they build on both platforms.
check-sources:
	@scripts/check-system-sources

# The concurrency tests under ThreadSanitizer.
test-concurrency:
	$(MAKE) test PRESET=tsan

# Builds only what the demonstration runs, then tells one shadow copy of E: on a fresh machine
# root (build/demo/root, wiped at each run); fails when any of its checks fails.
demo: configure
	cmake --build --preset $(PRESET) --target orvdemo
	build/$(PRESET)/tools/orvdemo/orvdemo --root build/demo/root

format:
	find pal host diag provider core store res sim tools tests bench \
	    \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | xargs -r clang-format -i

clean:
	rm -rf build
