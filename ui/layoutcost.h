// SPDX-License-Identifier: MIT
#pragma once

class QTextDocument;

/**
 * Estimates the processor time in seconds that Qt needs for the layout and the first drawing of @p
 * document, rounded up. Infinity when the document is too high for Qt's fixed-point numbers: its
 * layout would never end. Images count with the sizes in their formats.
 *
 * To be called before Qt computes the layout: between beginEditBlock() and endEditBlock() of the
 * text cursor that fills the document. GUI thread.
 */
double LayoutSeconds(const QTextDocument &document);
