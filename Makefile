# The two commands of the README: `make run` and `make test`.
# Each installs the Debian 12 packages it needs, configures, builds, then runs.
# `make fuzz` runs the fuzzers for longer than the test does; `make bench` measures speed and memory.

BUILD_DIR ?= build
# The suite again with AddressSanitizer and UndefinedBehaviorSanitizer; the fuzzers (clang).
SANITIZE_BUILD_DIR ?= $(BUILD_DIR)-sanitize
FUZZ_BUILD_DIR ?= $(BUILD_DIR)-fuzz
JOBS ?= $(shell nproc)
# Seconds the idle figure of `make bench` lasts: ten minutes for the record, less while developing
# (`make bench IDLE_SECONDS=60`).
IDLE_SECONDS ?= 600
# Seconds each fuzzer runs: briefly in `make test`, long in `make fuzz`.
TEST_FUZZ_SECONDS ?= 5
FUZZ_SECONDS ?= 300

# Qt's SVG plugin draws the tray icon; the fonts draw the menus' emoji and symbols; wayland-scanner
# (libwayland-bin) generates the Wayland protocol code; Qt's platform headers (qt6-base-private-dev)
# give the Wayland connection Qt made.
BUILD_PACKAGES := cmake ninja-build gcc g++ pkg-config qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins \
	qt6-base-private-dev \
	qcoro-qt6-dev libqt6svg6 libxcb1-dev libxcb-keysyms1-dev \
	fonts-noto-color-emoji fonts-dejavu-core fonts-symbola libwayland-dev libwayland-bin
RUN_PACKAGES := xvfb trayer xdotool x11-utils imagemagick dbus-x11 qt6-wayland
# The real desktop shells that tests/desktops runs Quillmar in (openbox: LXQt's window manager),
# and what reads their screens (the accessibility bus, OCR) and clipboards.
DESKTOP_PACKAGES := gnome-shell gnome-shell-extension-appindicator plasma-workspace \
	plasma-desktop kwin-x11 xfce4-panel lxqt-panel openbox sway waybar grim wtype qt6-wayland \
	wl-clipboard at-spi2-core python3-pyatspi python3-gi python3-dbus tesseract-ocr
# x11-xkb-utils (setxkbmap): keyboard layouts the recorder is tested under;
# dbus-daemon and gdbus (libglib2.0-bin): private buses and calls as a desktop makes them;
# dpkg-dev and file: CPack's package; appstream, desktop-file-utils and python3-debian check what
# it installs; clang and its runtime: the fuzzers; XTest and Damage: the hot key benchmark presses
# the key and sees the menu drawn.
TEST_PACKAGES := $(RUN_PACKAGES) xclip dbus-daemon libglib2.0-bin x11-xkb-utils \
	appstream desktop-file-utils python3-debian dpkg-dev file clang libclang-rt-14-dev \
	libxcb-xtest0-dev libxcb-damage0-dev $(DESKTOP_PACKAGES)

.PHONY: run test build deps-build deps-run deps-test format sanitize-build sanitize-test fuzz-build \
	fuzz bench

define install_missing
	@missing=$$(for p in $(1); do dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
		echo "Installing: $$missing"; \
		apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi
endef

deps-build:
	$(call install_missing,$(BUILD_PACKAGES))

deps-run: deps-build
	$(call install_missing,$(RUN_PACKAGES))

deps-test: deps-build
	$(call install_missing,$(TEST_PACKAGES))

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

$(SANITIZE_BUILD_DIR)/build.ninja:
	cmake -S . -B $(SANITIZE_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DQUILLMAR_SANITIZE=ON

$(FUZZ_BUILD_DIR)/build.ninja:
	cmake -S . -B $(FUZZ_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DQUILLMAR_FUZZ=ON

run: deps-run
	@$(MAKE) --no-print-directory build
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
		exec $(BUILD_DIR)/quillmar; \
	else \
		tools/headless-run.sh $(BUILD_DIR)/quillmar $(BUILD_DIR)/screenshot.png; \
	fi

# Every test runs once and a failure counts the first time: the tests wait on the events they
# check, never on a fixed time, so a loaded machine makes them slower, not red. The tests inside
# the real desktop shells take minutes each. The tests mostly wait, so the sanitizer and fuzzer
# builds are made meanwhile at the lowest priority, on the CPU the tests leave (their output goes
# to a log, shown if they fail).
test: deps-test
	@$(MAKE) --no-print-directory build $(SANITIZE_BUILD_DIR)/build.ninja $(FUZZ_BUILD_DIR)/build.ninja
	@log=$(CURDIR)/$(BUILD_DIR)/background-builds.log; \
	nice -n 19 $(MAKE) --no-print-directory sanitize-build fuzz-build >$$log 2>&1 & builds=$$!; \
	cd $(BUILD_DIR); \
	ctest --output-on-failure -j $(JOBS) -LE desktop; fast=$$?; \
	ctest --output-on-failure -L desktop; shells=$$?; \
	wait $$builds || { cat $$log; exit 1; }; \
	[ $$fast -eq 0 ] || exit $$fast; exit $$shells
	@$(MAKE) --no-print-directory sanitize-test
	@$(MAKE) --no-print-directory fuzz FUZZ_SECONDS=$(TEST_FUZZ_SECONDS)

sanitize-build: deps-test $(SANITIZE_BUILD_DIR)/build.ninja
	cmake --build $(SANITIZE_BUILD_DIR) -j $(JOBS)

# The package is made from the plain build only, so its tests do not run here again.
sanitize-test: sanitize-build
	cd $(SANITIZE_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) -E '^packaging/'

fuzz-build: deps-test $(FUZZ_BUILD_DIR)/build.ninja
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS) --target quillmar_fuzzers

fuzz: fuzz-build
	cd $(FUZZ_BUILD_DIR) && QUILLMAR_FUZZ_SECONDS=$(FUZZ_SECONDS) \
		ctest --output-on-failure -j $(JOBS) -L fuzz

# The table goes to the terminal and into docs/benchmarks.md.
bench: deps-test
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLMAR_BUILD_BENCHMARKS=ON
	cmake --build $(BUILD_DIR) -j $(JOBS) --target quillmar_bench
	$(BUILD_DIR)/bench/quillmar_bench docs/benchmarks.md $(IDLE_SECONDS)

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')
