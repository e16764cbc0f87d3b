#pragma once

class QTextDocument;

/**
 * Limits what Qt needs for the layout and the drawing of @p document to well below a second,
 * whatever markup or text it was made from. Ordinary documents do not change.
 *
 * - Long paragraphs are split, because the time for a word grows with the square of its length.
 * - Lengths and font sizes are limited, because the layout of a document that is too high for Qt's
 *   fixed-point numbers never ends.
 * - The number of fonts and of floating tables and images is limited.
 *
 * Call it between beginEditBlock() and endEditBlock() of a cursor: Qt lays the document out at the
 * end of the edit. GUI thread.
 */
void LimitLayoutCost(QTextDocument &document);
