# The two commands of the README: `make run` and `make test`.
# Each installs the Debian 12 packages it needs, configures, builds, then runs.

BUILD_DIR ?= build
JOBS ?= $(shell nproc)

BUILD_PACKAGES := cmake ninja-build g++ pkg-config qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins \
	qcoro-qt6-dev libqt6svg6 qt6-svg-dev libxcb1-dev libxcb-keysyms1-dev libx11-dev \
	fonts-noto-color-emoji fonts-dejavu-core fonts-symbola
RUN_PACKAGES := xvfb trayer xdotool x11-utils imagemagick dbus-x11
TEST_PACKAGES := $(RUN_PACKAGES) qt6-httpserver-dev xclip openssl dbus-daemon \
	appstream desktop-file-utils dpkg-dev file

.PHONY: run test build deps-build deps-run deps-test format

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

run: deps-run
	@$(MAKE) --no-print-directory build
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
		exec $(BUILD_DIR)/quillmar; \
	else \
		tools/headless-run.sh $(BUILD_DIR)/quillmar $(BUILD_DIR)/screenshot.png; \
	fi

test: deps-test
	@$(MAKE) --no-print-directory build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')
