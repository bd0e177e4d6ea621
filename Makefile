# Quillbrook: the two commands a new machine needs are `make demo` and `make check`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
BENCH_BUILD ?= build-release
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)

.PHONY: all bootstrap configure build demo check test format includes asan tsan bench fuzz fuzz-build \
	screenshots clean

all: build

bootstrap:
	@scripts/bootstrap

configure: bootstrap
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: configure
	cmake --build $(BUILD) -j$(JOBS)

# Build, then convert the shipped samples and say where the output is.
demo: build
	@scripts/demo $(BUILD)

# The format and include checks, every test, then the unit tests again under AddressSanitizer
# and UndefinedBehaviorSanitizer, and the tests that start threads under ThreadSanitizer.
check: build format includes test asan tsan fuzz-build

# Every C++ file as .clang-format (Debian's clang-format) has it.
format: bootstrap
	git ls-files -co --exclude-standard '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

# No folder includes one above it.
includes:
	scripts/check-includes

test:
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

asan: bootstrap
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQB_SANITIZE=ON -DQB_BUILD_UI=OFF \
	  -DQB_BUILD_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j$(JOBS)

# The conversion, workbook, job, report view and window tests, whose runs start threads, under
# ThreadSanitizer (the window offscreen).
tsan: bootstrap
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQB_TSAN=ON -DQB_BUILD_BENCH=OFF
	cmake --build $(TSAN_BUILD) -j$(JOBS) --target qb_unit_tests qb_ui_tests qbconvert
	TSAN_OPTIONS="halt_on_error=1 history_size=4 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp" \
	  QT_QPA_PLATFORM=offscreen ctest --test-dir $(TSAN_BUILD) --output-on-failure -j$(JOBS) \
	  -R '^(ConvertTest|SpreadsheetTest|ConversionJobTest|TraceTest|ReportTracerTest|BatchTest|PdfTest|WindowTest|ReportPaneTest|ConvertManyTest)\.'

bench: bootstrap
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DQB_BUILD_UI=OFF -DQB_BUILD_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j$(JOBS)
	@bench/run $(BENCH_BUILD)

# The libFuzzer targets, built with clang (make check builds them so that they cannot rot).
fuzz-build: bootstrap
	CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQB_FUZZ=ON -DQB_BUILD_UI=OFF \
	  -DQB_BUILD_TESTS=OFF -DQB_BUILD_BENCH=OFF
	cmake --build $(FUZZ_BUILD) -j$(JOBS)

# Sixty seconds of libFuzzer on each target (RDF loading, the preprocessing steps, whole
# conversions), starting from the shipped samples.
fuzz: fuzz-build
	@tests/fuzz/run $(FUZZ_BUILD) 60

# Pictures of the window and its dialogs, in build/screenshots/; those of the README and the
# manual are copied to docs/images/.
MANUAL_PICTURES = window-report-view window-preview first-rdf-columns check-rdf
screenshots: build
	rm -rf $(BUILD)/screenshots
	QT_QPA_PLATFORM=offscreen $(BUILD)/tests/qb_screenshots $(CURDIR) $(CURDIR)/$(BUILD)/screenshots
	for p in $(MANUAL_PICTURES); do cp $(BUILD)/screenshots/$$p.png docs/images/; done

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
