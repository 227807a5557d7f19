# The two that matter are `make run` and `make test`; everything else of the build is CMake's.
SHELL := /bin/bash
.SHELLFLAGS := -o pipefail -ec
MAKEFLAGS += --no-print-directory

# The configuration to test: release, debug, sanitize or clang.
PRESET ?= release
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
# Line coverage that the tests of NerioSwitchTable/ have to reach, in percent; not counted if empty.
COVERAGE ?=
# Further arguments of `nerio run` and of the benchmarks.
ARGS ?=

# What clang-tidy looks at; headers come with the sources that include them.
SOURCES ?= *.cpp
CLANG_FORMAT ?= clang-format-14
CLANG_TIDY ?= clang-tidy-14

.PHONY: help run test bench lint install package docs clean
help:
	@echo 'make run        build nerio and run the switch: nerio run $$ARGS'
	@echo 'make test       build and run the tests; PRESET=sanitize runs them over sanitized libraries,'
	@echo '                COVERAGE=95 fails where they reach less of the lines of NerioSwitchTable/'
	@echo 'make bench      build and run the benchmarks: nerio_bench $$ARGS'
	@echo 'make lint       check the sources with clang-format and clang-tidy; SOURCES="chip/*.cpp" for some'
	@echo 'make install    install the libraries, their headers and nerio under PREFIX, $(PREFIX)'
	@echo 'make package    make Debian packages: library, development files, and nerio'
	@echo 'make docs       write the reference of all headers to build/docs/html'
	@echo 'make clean      remove everything that was built'
	@echo 'Debian packages that are missing are installed first, after a line that names them.'

# $(call packages,preset) and $(call configure,preset,arguments) prepare a build, $(call build,preset,target)
# makes it.
packages = @tools/install-dependencies.sh build test bench $(filter lint clang,$(1)) $(if $(COVERAGE),coverage)
configure = @tools/step.sh 'Configuring $(1)' build/$(1)/configure.log cmake --preset $(1) $(2)
coverage = -DNERIO_COVERAGE=$(if $(COVERAGE),ON,OFF)
build = @tools/step.sh 'Building $(1)' build/$(1)/build.log \
	cmake --build --preset $(1) -j$(JOBS) --target $(2)

run:
	$(call packages)
	$(call configure,release)
	$(call build,release,nerio)
	@build/release/nerio/nerio run $(ARGS)

# The sanitizers watch the libraries; the tests are those that the release build compiles.
# What passed is left out, so that failures and the summary stand alone; test.log has every line.
test:
	@rm -f build/$(PRESET)/test.log
	$(call packages,$(PRESET))
ifeq ($(PRESET),sanitize)
	$(call configure,release)
	$(call build,release,nerio_test_objects NerioCommands)
	$(call configure,sanitize,-DNERIO_TEST_OBJECTS=$(CURDIR)/build/release $(coverage))
else
	$(call configure,$(PRESET),$(coverage))
endif
	$(call build,$(PRESET),all)
	@tools/coverage.sh forget build/$(PRESET)
	@ctest --preset $(PRESET) -j$(JOBS) | tee build/$(PRESET)/test.log | sed -u -E \
	    -e '/^ *Start +[0-9]+: /d' -e '/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: .* Passed +[0-9.]+ sec$$/d'
ifneq ($(COVERAGE),)
	@tools/coverage.sh report build/$(PRESET) $(COVERAGE) 2>&1 | tee -a build/$(PRESET)/test.log
endif

bench:
	$(call packages)
	$(call configure,release)
	$(call build,release,nerio_bench)
	@build/release/bench/nerio_bench $(ARGS)

lint:
	$(call packages,lint)
	$(call configure,lint)
	@echo 'Checking the format'
	@git ls-files -z '*.h' '*.cpp' | xargs -0 $(CLANG_FORMAT) --dry-run -Werror
	@echo 'Checking the code'
	@git ls-files -z '$(SOURCES)' | CLANG_TIDY=$(CLANG_TIDY) JOBS=$(JOBS) xargs -0 tools/lint.py build/lint

install:
	$(call packages)
	$(call configure,release)
	$(call build,release,all)
	@tools/step.sh 'Installing under $(PREFIX)' build/release/install.log \
	    cmake --install build/release --prefix $(PREFIX)

package:
	$(call packages)
	$(call configure,release)
	$(call build,release,all)
	@tools/step.sh 'Packing build/release/packages' build/release/package.log cpack --config build/release/CPackConfig.cmake
	@ls build/release/packages/*.deb

docs:
	@tools/install-dependencies.sh docs
	@mkdir -p build/docs
	@sed "s/@VERSION@/$$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)/" docs/Doxyfile.in >build/docs/Doxyfile
	@tools/step.sh 'Writing build/docs/html' build/docs/doxygen.log doxygen build/docs/Doxyfile

clean:
	rm -rf build
