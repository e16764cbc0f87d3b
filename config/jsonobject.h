#pragma once

#include <QByteArray>
#include <QJsonObject>

struct QJsonParseError;

/**
 * The object that a JSON text holds; an empty one when the text does not parse, or holds something
 * else. @p error, when given, tells which. Callable from every thread.
 */
QJsonObject JsonObjectOf(const QByteArray &text, QJsonParseError *error = nullptr);
