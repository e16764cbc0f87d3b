// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The window system's number of the updater's visible window; empty if there is none.
QString UpdaterWindow();
