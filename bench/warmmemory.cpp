// SPDX-License-Identifier: MIT
#include "bench/warmmemory.h"

#include <QByteArray>
#include <QDir>

namespace
{

constexpr int kMebibyte = 1024 * 1024;

} // namespace

WarmMemory::WarmMemory(int mebibytes) : m_file(QDir::tempPath() + QStringLiteral("/warm-memory"))
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("%s: %s", qPrintable(m_file.fileName()), qPrintable(m_file.errorString()));
    const QByteArray part(kMebibyte, 'x');
    for (int written = 0; written < mebibytes; ++written) {
        if (m_file.write(part) != part.size())
            qFatal("%s: %s", qPrintable(m_file.fileName()), qPrintable(m_file.errorString()));
    }
}

WarmMemory::~WarmMemory()
{
    Release();
}

void WarmMemory::Release()
{
    m_file.remove();
}
