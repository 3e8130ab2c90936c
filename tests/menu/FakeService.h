#pragma once

// The old name of the service fake, kept only while tests/app/tst_x11_HotKey.cpp still uses it.
#include "FakeRaindropService.h"

using FakeService = FakeRaindropService;
