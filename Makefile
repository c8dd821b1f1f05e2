# Thin wrapper around CMake: `make test` and `make demo` work on a fresh machine.
BUILD   ?= build
JOBS    ?= $(shell nproc 2>/dev/null || echo 2)
DEB_PKGS = g++ cmake make libgtest-dev libbenchmark-dev libncurses-dev ncompress tar procps util-linux diffutils \
           dosfstools mtools fusefat tmux groff-base

.PHONY: all deps configure build test demo fuzz clean

all: build

# Installs what is missing of the packages named, and only when we may (root
# with apt-get).
install_missing = @missing=""; for p in $(1); do \
	    dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	    if [ "$$(id -u)" = 0 ] && command -v apt-get >/dev/null; then \
	        echo "installing:$$missing"; \
	        apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	    else echo "missing Debian packages:$$missing (run make as root to install them)"; fi; \
	fi

deps:
	$(call install_missing,$(DEB_PKGS))

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The libFuzzer harnesses, built with clang and its libFuzzer runtime in their
# own directory, each run FUZZ_SECONDS from its seeds.
FUZZ_SECONDS ?= 60
FUZZ_BUILD   ?= build-fuzz
fuzz:
	$(call install_missing,clang libclang-rt-dev)
	sh tests/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# Goes as far as it can: the script says which pieces are missing.
demo: configure
	-cmake --build $(BUILD) -j $(JOBS) -- -k
	@sh examples/demo.sh $(BUILD)

clean:
	rm -rf $(BUILD)
