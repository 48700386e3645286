# The two commands that do everything on a fresh Debian 12 machine:
#   make demo   install what is needed, build, and show the framework reading generated sounds
#   make test   install what is needed, build, and run every test
PRESET ?= default
BUILD := build/$(PRESET)
JOBS ?= $(shell nproc)

.PHONY: setup build demo test bench fuzz corpus inplace-corpus clean install

setup:
	@scripts/setup.sh

build: setup
	cmake --preset $(PRESET) > /dev/null
	cmake --build --preset $(PRESET) -j $(JOBS)

demo: build
	scripts/demo.sh $(BUILD)

test: build
	ctest --preset $(PRESET) -j $(JOBS)

# Into PREFIX (default /usr/local): the programs, the manual page, the desktop entry, icon and file type.
PREFIX ?= /usr/local
install: build
	cmake --build --preset $(PRESET) --target man
	cmake --install $(BUILD) --prefix $(PREFIX)
	-update-mime-database $(PREFIX)/share/mime 2>/dev/null
	-update-desktop-database $(PREFIX)/share/applications 2>/dev/null

bench: setup
	bench/run.sh
	bench/commands.sh
	bench/file_list.sh
	bench/rename.sh

fuzz: setup
	scripts/fuzz.sh

corpus: setup
	cmake --preset asan > /dev/null
	cmake --build --preset asan -j $(JOBS) --target clipwright
	scripts/corpus.sh build/asan/app/clipwright

inplace-corpus: build
	scripts/inplace-corpus.sh $(BUILD)/app/clipwright

clean:
	rm -rf build
