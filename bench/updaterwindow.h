#pragma once

#include <QString>

/// The number that the window system gave the updater's visible window; empty without one.
QString UpdaterWindow();
