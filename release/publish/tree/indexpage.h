// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/tree/reply.h"

#include <QByteArray>

/**
 * A page for people about a release: what it is, its digests, and its notes as the prompt shows
 * them. It is one HTML file that loads and runs nothing, whatever the notes contain.
 */
QByteArray IndexPage(const Offer &offer);

/// The facts about @p offer that @p page does not contain.
Findings CheckIndexPage(const QByteArray &page, const Offer &offer);
