#pragma once

#include <QTextCodec>

/// While it lives the locale's encoding is the one of that name, for all that asks Qt for it.
class LocaleEncoding
{
public:
    explicit LocaleEncoding(const char *name)
    {
        QTextCodec *const codec = QTextCodec::codecForName(name);
        if (codec == nullptr)
            qFatal("no encoding is named %s", name);
        QTextCodec::setCodecForLocale(codec);
    }

    ~LocaleEncoding() { QTextCodec::setCodecForLocale(nullptr); }

    Q_DISABLE_COPY(LocaleEncoding)
};
