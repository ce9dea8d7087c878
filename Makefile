# The front door. `make help` lists what there is.

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
SETUP ?= cmake/setup.sh
# Each step of the compiler is news on a terminal, and noise in a log.
NINJA_FLAGS = $(if $(MAKE_TERMOUT),,--quiet)
SOURCE_FOLDERS = pellor cli tests examples fuzz search bench
SOURCES = $(shell find $(wildcard $(SOURCE_FOLDERS)) -name '*.h' -o -name '*.cpp')

.DEFAULT_GOAL := help
.PHONY: help setup run test asan tsan thread-safety coverage core bench bench-table races fuzz search nightly format check-format check-sources tidy install clean

help:
	@echo 'make run            the program at work on the sample contacts (release build)'
	@echo 'make test           build and run every test'
	@echo 'make asan           the same under AddressSanitizer and UndefinedBehaviorSanitizer'
	@echo 'make tsan           the same under ThreadSanitizer'
	@echo 'make thread-safety  let clang check which lock or queue guards what'
	@echo 'make coverage       which lines and branches of pellor/friends/ the tests reach; fails below 97 and 90 percent'
	@echo 'make bench          measure, each thing beside its yardstick (BENCH_QUICK=1, BENCH_ROWS=text: less of it)'
	@echo 'make bench-table    the same, all of it, into docs/performance.md'
	@echo 'make races          let programs edit one list at the same moment; tells what was lost (RACES=200, RACE_OPTIONS=--help)'
	@echo 'make fuzz           search by bytes, each target for a while (FUZZ_SECONDS=60, FUZZ_TARGETS=names: only these)'
	@echo 'make search         search by worlds, file calls, losses of power, allocations and bytes, for SEARCH_MINUTES=60'
	@echo 'make nightly        what takes too long for each change: the races, the search, a million merges (TRIPLES=1000000)'
	@echo 'make core           build the library alone, without the Linux platform'
	@echo 'make format         format all sources;  make check-format  only tell which are not'
	@echo 'make check-sources  check the directions of includes'
	@echo 'make tidy           run clang-tidy'
	@echo 'make install        install to PREFIX (default /usr/local)'
	@echo 'make clean          remove build/'
	@echo 'What is missing on the machine is installed first (SETUP=: to leave that out).'

# $(call build,<preset>,<further options>,<target, where not all is wanted>)
define build
@echo '== build ($(1))'
@mkdir -p build
@cmake --preset $(1) $(2) >build/$(1).log 2>&1 || { cat build/$(1).log; exit 1; }
@cmake --build build/$(1) --parallel $(JOBS) $(if $(3),--target $(3)) -- $(NINJA_FLAGS)
endef

# $(call test,<preset>)
define test
@echo '== test ($(1))'
@ctest --preset $(1) --parallel $(JOBS)
endef

run:
	@$(SETUP) build libraries services
	$(call build,release,,pellor_cli)
	@examples/demo.sh build/release/cli/pellor

test:
	@$(SETUP) build libraries services tests servers bench
	$(call build,dev)
	$(call test,dev)

asan tsan:
	@$(SETUP) build libraries services tests servers sanitizers
	$(call build,$@)
	$(call test,$@)

thread-safety:
	@$(SETUP) build libraries services sanitizers
	$(call build,$@)

# The build itself counts: it asks the test program for its tests.
drop_counts = @test ! -d build/coverage || find build/coverage -name '*.gcda' -delete

# Without counts of earlier runs, and without what is left of sources that are gone.
coverage:
	@$(SETUP) build tests coverage
	$(drop_counts)
	$(call build,$@,,pellor_tests)
	$(drop_counts)
	@for notes in $$(find build/coverage -name '*.gcno'); do test -e "$${notes%.gcno}.o" || rm "$$notes"; done
	@echo '== test (coverage)'
	@PELLOR_SEEDS=20 PELLOR_TRIPLES=400 build/coverage/tests/pellor/pellor_tests --gtest_brief=1
	@gcovr --root . --filter pellor/friends/ --gcov-executable gcov-12 --exclude-throw-branches -j $(JOBS) build/coverage \
	  --txt --print-summary --html-details build/coverage/report.html --fail-under-line 97 --fail-under-branch 90

core:
	@$(SETUP) build
	$(call build,core)

BENCH_ROWS ?=

bench:
	@$(SETUP) build libraries bench
	$(call build,release,-DPELLOR_BENCH=ON)
	@bench/table.py build/release/bench --rows '$(BENCH_ROWS)'

bench-table:
	@$(SETUP) build libraries bench
	$(call build,release,-DPELLOR_BENCH=ON)
	@bench/table.py build/release/bench --markdown docs/performance.md

# Goes on where it stopped, as long as the programs are the same.
RACES ?= 200
OTHER_RACES ?= 50
RACE_OPTIONS ?=

races:
	@$(SETUP) build libraries services tests servers
	$(call build,dev,,races)
	@build/dev/tests/e2e/races --results build/races.txt --races $(RACES) --other-races $(OTHER_RACES) $(RACE_OPTIONS)

FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=

fuzz:
	@$(SETUP) build libraries services sanitizers
	$(call build,fuzz,,pellor_fuzz)
	@fuzz/run.sh $(FUZZ_SECONDS) $(FUZZ_TARGETS)

SEARCH_MINUTES ?= 60
SEARCH_PARTS ?=

search:
	@$(SETUP) build libraries services tests servers sanitizers
	$(if $(filter-out worlds calls loss memory,$(or $(SEARCH_PARTS),bytes)),$(call build,fuzz,,pellor_fuzz))
	$(call build,dev,,pellor_cli pellor_file_calls pellor_tests failed_allocations)
	@search/run.sh $(SEARCH_MINUTES) $(SEARCH_PARTS)

TRIPLES ?= 1000000

# The worlds of a night never ran before.
nightly: export PELLOR_FIRST_SEED := $(shell date +%s)00000000
nightly: races search
	$(call build,dev)
	@echo '== $(TRIPLES) merged triples'
	@PELLOR_TRIPLES=$(TRIPLES) build/dev/tests/pellor/pellor_tests --gtest_brief=1 --gtest_filter='Seeds/TripleTest.*'
	@echo '== two operations in each of two processes, at every boundary of tasks'
	@PELLOR_SEED_MINUTES=10 build/dev/tests/list/list_tests --gtest_brief=1 --gtest_filter='Seeds/InterleavingTest.Two*/0'
	@echo '== steps taken back'
	@PELLOR_DONE_AGAIN=4000 PELLOR_TAKEN_BACK_LATER=200000 build/dev/tests/list/list_tests --gtest_brief=1 \
	  --gtest_filter='Seeds/TakeBackSeedsTest.*'
	@PELLOR_STEPS=10000 PELLOR_REDONE=10000 build/dev/tests/list/list_tests --gtest_brief=1 \
	  --gtest_filter='Seeds/FriendListStepSeedsTest.*'
	@PELLOR_STEPS=10000 build/dev/tests/pellor/pellor_tests --gtest_brief=1 --gtest_filter='Seeds/StepSimulationTest.*'
	@echo '== every bit and every length of a small store, and of a small index of contacts'
	@PELLOR_EVERY_BIT=1 build/dev/tests/linux/linux_tests --gtest_brief=1 --gtest_filter='SmallStore.*:SmallIndex.*'

install:
	@$(SETUP) build libraries services
	$(call build,release)
	@cmake --install build/release --prefix $(PREFIX) >/dev/null
	@echo 'installed to $(PREFIX)'

format:
	@$(SETUP) formatting
	@clang-format-16 -i $(SOURCES)

check-format:
	@$(SETUP) formatting
	@clang-format-16 --dry-run --Werror $(SOURCES)

check-sources:
	@cmake/check-sources.sh

tidy:
	@$(SETUP) build libraries services tests servers sanitizers analysis
	@mkdir -p build
	@cmake --preset asan >build/asan.log 2>&1 || { cat build/asan.log; exit 1; }
	@run-clang-tidy-16 -quiet -j $(JOBS) -p build/asan '$(CURDIR)/(pellor|cli)/'

clean:
	@rm -rf build
