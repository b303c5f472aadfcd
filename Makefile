# The two commands of this repository:
#   make test   install what is missing, configure, build and run every test
#   make demo   the shadow copy demonstration (arrives with the VSS simulation)
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

demo:
	@echo "make demo will drive a whole shadow copy of a simulated volume through the provider:"
	@echo "VSS simulation -> provider -> simulated storage service, with the trace and events it"
	@echo "leaves. The VSS and storage simulations do not exist yet, so there is nothing to show."
	@exit 1

format:
	find pal host diag provider core store res sim tools tests bench \
	    \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | xargs -r clang-format -i

clean:
	rm -rf build
