# The main commands. Each installs missing packages, configures and builds what it needs.
# Programs are placed in build/release/.

.DEFAULT_GOAL := help
.PHONY: help demo check test bench campaign fuzz format tidy coverage conditions interruptions mutants release sign package notarize staple

help:
	@echo 'make demo      watch the daemon hold a virtual MacBook at its limit, for a minute'
	@echo 'make check     run before each commit: the tests of what was rebuilt, without the long ones'
	@echo 'make test      run all checks: format, tests with both compilers, sanitizers, clang-tidy'
	@echo 'make bench     measure speed and memory, each compared with its target'
	@echo 'make campaign  run generated scenarios over weeks: SEEDS=1..400 DAYS=30 FAULTS=all GUARD=… (docs/lab.md)'
	@echo 'make fuzz      fuzz every parser, for SECONDS=60 each'
	@echo 'make release   build the programs into build/release/'
	@echo 'make format    format the C++ files'
	@echo 'make tidy      run clang-tidy only'
	@echo 'make interruptions   interrupt installing, removing and the first run on a Mac everywhere, for some minutes'
	@echo 'make coverage  show which lines of src/ and the virtual Mac no test runs'
	@echo 'make conditions  show which conditions of src/ no test shows to matter on their own (MC/DC)'
	@echo 'make mutants   change every rule of the daemon on purpose and see a test fail: MUTANTS="--file policy/ --sample 100"'
	@echo 'make sign, package, notarize, staple   on a Mac: the installer package (docs/macos.md)'

demo: configured
	@cmake --build build/release --target brisko brisko-daemon brisko-vmac brisko-demo
	@build/release/brisko-demo

bench: configured
	@scripts/install-dependencies.sh bench
	@cmake --build build/release --target benchmarks
	@build/release/brisko-bench

SEEDS ?= 1..400
DAYS ?= 30
FAULTS ?= all
campaign: configured
	@cmake --build build/release --target brisko-lab
	@build/release/brisko-lab campaign --seeds $(SEEDS) --days $(DAYS) --faults $(FAULTS) $(if $(GUARD),--guard $(GUARD))

fuzz:
	@scripts/fuzz.sh $(or $(SECONDS),60)

release: configured
	@cmake --build build/release

check:
	@scripts/check.sh

test:
	@scripts/test.sh

format:
	@scripts/install-dependencies.sh checks
	@scripts/format.sh

tidy:
	@scripts/install-dependencies.sh checks
	@cmake --preset asan
	@scripts/tidy.sh build/asan

coverage:
	@scripts/coverage.sh

conditions:
	@scripts/conditions.sh

interruptions:
	@scripts/install-dependencies.sh checks
	@tests/packaging/interruptions.sh

mutants:
	@scripts/install-dependencies.sh checks
	@cmake --preset release
	@/usr/bin/python3 -B tests/mutants/generated/run.py build/release $(MUTANTS)

.PHONY: configured
configured:
	@scripts/install-dependencies.sh
	@cmake --preset release

# On a Mac, with IDENTITY=…, INSTALLER_IDENTITY=… or NOTARY=…
sign package notarize staple:
	@$(MAKE) -C packaging $@
