#pragma once

class QTextDocument;

/**
 * Estimates the processor time that Qt needs for the layout and the first drawing of @p document,
 * rounded up; infinity for one that is too high for Qt's fixed-point numbers, whose layout would
 * never end. Images count with the sizes that their formats name.
 *
 * To be called before the layout: between beginEditBlock() and endEditBlock() of the cursor with
 * which the document is filled. GUI thread.
 */
double LayoutSeconds(const QTextDocument &document);
