# The commands of daily work; CMake does the building. `make` lists them.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
SECONDS ?= 60
PREFIX ?= /usr/local
RESULTS ?= bench/results
REPETITIONS ?= 5
CTEST = UBSAN_OPTIONS=print_stacktrace=1 ctest -j2 --output-on-failure --no-label-summary
SOURCES = $(shell find $(wildcard src drivers tools tests fuzz bench examples) -name '*.h' -o -name '*.cpp')

# Configures and builds a preset: $(call build,preset,further arguments of the build,of the configuration)
build = cmake --preset $(1) $(3) >/dev/null && cmake --build --preset $(1) -j $(JOBS) $(2)

# Branches that coverage leaves out: on lines of tables of attributes, assertions, traces and texts, and on
# lines without any decision (if, for, while, switch, case, catch, ?:, &&, ||), where only the compiler can have
# made them: for what may throw, or for the destruction of a value.
DECISION = \b(if|for|while|switch|case|catch)\b|[?]|&&|[|][|]
NOT_OURS = ^(?!.*($(DECISION))).*$$|.*(Mox::(attribute<|operation\(|field\()|MOX_ASSERT|[Tt]race|line <<|[Tt]ext).*

.DEFAULT_GOAL := help
.PHONY: help deps deps-check build test demo check-all clang-build headers memcheck coverage fuzz \
        bench bench-peers demo-ovs bench-ovs check-ovs format format-check tidy package package-deps \
        package-check install clean

help: ## List the targets
	@awk -F ':.*## ' '/^[a-z-]+:.*## / { printf "  %-14s %s\n", $$1, $$2 }' Makefile

deps: ## Install what building and testing need (Debian)
	@scripts/deps.sh build

deps-check: ## Install what check-all needs besides
	@scripts/deps.sh check

build: deps ## Build the library and the tool (build/release)
	@$(call build,release,--target product)

# The sanitized run goes first, so that the closing lines are those of the full run.
test: deps ## Run the fast tests under sanitizers, then all tests
	@$(call build,asan-ubsan,--target fast_tests)
	@$(call build,release)
	@$(CTEST) --test-dir build/asan-ubsan -L fast
	@$(CTEST) --test-dir build/release

demo: build ## Show the tool at work
	@scripts/demo.sh

demo-ovs: build ## Show rules in force in an Open vSwitch of its own
	@scripts/deps.sh ovs
	@scripts/ovs.sh fetch build/openvswitch
	@scripts/demo-ovs.sh

check-ovs: build ## The long tests in Open vSwitch, over SETS=dir besides
	@scripts/deps.sh ovs
	@$(call build,release,--target ovs_tests)
	@scripts/ovs-check.sh build/release $(if $(SETS),$(wildcard $(SETS)/*))

check-all: deps-check ## All further checks: clang, format, tidy, headers, memory, coverage
	@$(MAKE) --no-print-directory format-check
	@$(MAKE) --no-print-directory clang-build
	@$(MAKE) --no-print-directory headers
	@$(MAKE) --no-print-directory tidy
	@$(MAKE) --no-print-directory memcheck
	@$(MAKE) --no-print-directory coverage

clang-build: deps-check ## Build with clang and run the fast tests
	@$(call build,clang)
	@$(CTEST) --test-dir build/clang -L fast

headers: deps ## Compile every installed header by itself
	@$(call build,release)
	@cmake --install build/release --prefix build/release/headers/prefix >/dev/null
	@tests/package/check_headers.sh build/release/headers/prefix g++ all

memcheck: deps-check ## Run the fast tests under valgrind
	@$(call build,release)
	@scripts/memcheck.sh build/release $(JOBS)

soak: deps ## Run random worlds for SECONDS (default 60), or the one of SEED
	@$(call build,release,--target soak)
	@cd build/release && bin/soak $(if $(SEED),0 $(SEED),$(or $(SECONDS),60))

coverage: deps-check ## Run all tests and print line and branch figures of src/naxel
	@$(call build,coverage)
	@find build/coverage -name '*.gcda' -delete
	@# What batches that are no more have left would be counted with the sources of today.
	@ninja -C build/coverage -t cleandead >/dev/null
	@find build/coverage -name '*.gcno' | while read -r f; do [[ -e $${f%.gcno}.o ]] || rm "$$f"; done
	@$(CTEST) --test-dir build/coverage
	@gcovr --root . --filter src/naxel/ --exclude-throw-branches --exclude-unreachable-branches \
	  --exclude-branches-by-pattern '$(NOT_OURS)' \
	  --branches --print-summary build/coverage

fuzz: deps-check ## Run every fuzzer for SECONDS=60 each, JOBS of them at once
	@$(call build,fuzz,--target fuzzers)
	@scripts/fuzz.sh build/fuzz $(SECONDS) $(JOBS)

bench: ## Run the benchmarks, over the files of SETS=dir or generated rules; RESULTS=dir
	@scripts/deps.sh bench
	@$(call build,release,--target naxel_bench,-DNAXEL_BUILD_BENCH=ON)
	@NAXEL_BENCH_SETS="$(SETS)" NAXEL_BENCH_PREFIXES="$(PREFIXES)" REPETITIONS=$(REPETITIONS) \
	  scripts/bench.sh build/release $(RESULTS) \
	  $(if $(FILTER),--benchmark_filter='$(FILTER)')

bench-ovs: ## Compare ways of bringing rules into Open vSwitch, over the files of SETS=dir or generated ones
	@scripts/deps.sh ovs
	@$(call build,release,--target naxel_tool --target naxel_bench_ovs,-DNAXEL_BUILD_BENCH=ON)
	@scripts/ovs.sh fetch build/openvswitch
	@NAXEL_BENCH_SETS="$(SETS)" scripts/bench-ovs.sh build/release build/openvswitch

bench-peers: ## Compare with the build of DPDK's librte_acl, over the same rules
	@scripts/deps.sh peers
	@$(call build,release,--target naxel_bench_peers,-DNAXEL_BUILD_PEERS=ON)
	@NAXEL_BENCH_SETS="$(SETS)" build/release/bin/naxel_bench_peers

format: deps-check ## Format all sources in place
	@clang-format -i $(SOURCES)

format-check: deps-check ## Fail on sources that are not formatted
	@clang-format --dry-run --Werror $(SOURCES)

tidy: deps-check ## Run clang-tidy over the library and the tool
	@cmake --preset tidy >/dev/null
	@scripts/tidy.py build/tidy $(JOBS) $(wildcard src drivers tools)

package: package-deps ## Build the Debian packages of the committed sources (build/packages)
	@scripts/package.sh

package-deps:
	@scripts/deps.sh package

package-check: package ## Check them: lintian, interface, same bytes, installed in an empty root
	@scripts/check_packages.sh build/packages

install: build ## Install below PREFIX (default /usr/local), honouring DESTDIR
	@cmake --install build/release --prefix $(PREFIX)

clean: ## Remove everything that was built
	@rm -rf build
