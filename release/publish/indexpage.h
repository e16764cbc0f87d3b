#pragma once

#include "release/publish/reply.h"

#include <QByteArray>

/**
 * A page for people about a release: what it is, its digests, and its notes as the prompt shows
 * them. One HTML file that loads nothing and runs nothing, whatever the notes hold.
 */
QByteArray IndexPage(const Offer &offer);

/// What of the facts @p page does not tell.
Findings CheckIndexPage(const QByteArray &page, const Offer &offer);
