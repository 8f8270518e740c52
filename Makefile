# The plain front: each command installs what is missing, configures and builds by itself.
# Programs land in build/release/.

.DEFAULT_GOAL := help
.PHONY: help demo test bench campaign fuzz format tidy coverage release sign package

help:
	@echo 'make demo      watch the daemon keep a virtual MacBook at its limit, in a minute'
	@echo 'make test      everything that is tested: format, both compilers, sanitizers, clang-tidy'
	@echo 'make bench     speed and memory, each beside its target'
	@echo 'make campaign  generated users and faults over weeks: SEEDS=1..400 DAYS=30 FAULTS=all (docs/lab.md)'
	@echo 'make fuzz      random bytes for everything that parses, SECONDS=60 for each reader'
	@echo 'make release   build the programs into build/release/'
	@echo 'make format    bring the C++ files into the format'
	@echo 'make tidy      clang-tidy alone'
	@echo 'make coverage  which lines of src/ and the virtual Mac no test runs'
	@echo 'make sign, make package   on a Mac: sign the program, pack it with its installer (docs/macos.md)'

demo: configured
	@cmake --build build/release --target brisko-daemon brisko-vmac brisko-demo
	@build/release/brisko-demo

bench: configured
	@cmake --build build/release --target benchmarks
	@build/release/brisko-bench

SEEDS ?= 1..400
DAYS ?= 30
FAULTS ?= all
campaign: configured
	@cmake --build build/release --target brisko-lab
	@build/release/brisko-lab campaign --seeds $(SEEDS) --days $(DAYS) --faults $(FAULTS)

fuzz:
	@scripts/fuzz.sh $(or $(SECONDS),60)

release: configured
	@cmake --build build/release

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

.PHONY: configured
configured:
	@scripts/install-dependencies.sh
	@cmake --preset release

# On a Mac, with IDENTITY=… or INSTALLER_IDENTITY=…
sign package:
	@$(MAKE) -C packaging $@
