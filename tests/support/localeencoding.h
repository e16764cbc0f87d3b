// SPDX-License-Identifier: MIT
#pragma once

#include <QTextCodec>

/// While it lives Qt takes the encoding of that name for the locale's.
class LocaleEncoding
{
public:
    explicit LocaleEncoding(const char *name)
    {
        QTextCodec *const codec = QTextCodec::codecForName(name);
        if (codec == nullptr)
            qFatal("unknown encoding: %s", name);
        QTextCodec::setCodecForLocale(codec);
    }

    ~LocaleEncoding() { QTextCodec::setCodecForLocale(nullptr); }

    Q_DISABLE_COPY(LocaleEncoding)
};
