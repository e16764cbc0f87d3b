// SPDX-License-Identifier: MIT
#pragma once

#include "install/zipformat.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

#include <memory>

/**
 * Writes a zip archive in blocks, so that files need not fit into memory. Every reader understands
 * the archive: sizes and checksums are in the header before the data, nothing is encrypted, and
 * names are UTF-8. The result depends only on names, data and methods.
 *
 * After a call has failed, all later ones fail; Error() says why. One thread at a time.
 */
class ZipWriter
{
public:
    enum Method { Stored = ZipFormat::Stored, Deflated = ZipFormat::Deflated };
    enum ErrorKind { NoError, WriteError, TooLarge };

    /// @p archive is an open, empty and unbuffered file. At most @p maxSize bytes are written,
    /// which must be less than 4 GiB.
    ZipWriter(QFile &archive, qint64 maxSize);
    ~ZipWriter();
    Q_DISABLE_COPY(ZipWriter)

    /// @p path has no trailing slash.
    bool AddFolder(const QString &path);

    /// Begins a file. Write() adds its data, EndFile() ends it.
    bool BeginFile(const QString &path, Method method);
    bool Write(const char *data, qint64 size);
    bool EndFile();

    /// The size of the last file's data in the archive, in bytes.
    qint64 PackedSize() const;

    /// Removes the last file from the archive. Another file or Finish() may follow.
    bool RemoveLast();

    /// Writes the archive's directory. Nothing can be added afterwards.
    bool Finish();

    ErrorKind Error() const { return m_error; }
    QString ErrorText() const { return m_errorText; }

private:
    struct Item;
    class Deflater;

    bool Fail(ErrorKind error, const QString &text = QString());
    bool WriteRaw(const QByteArray &bytes);
    bool WriteHeader();
    bool Deflate(const char *data, qint64 size, bool isLast);
    QByteArray CommonFields() const;
    void List();

    QFile &m_archive;
    qint64 m_maxSize;
    std::unique_ptr<Item> m_item; ///< the current or last item
    std::unique_ptr<Deflater> m_deflater;
    QByteArray m_directory; ///< of all items before m_item
    int m_count = 0;        ///< the number of entries in m_directory
    ErrorKind m_error = NoError;
    QString m_errorText;
};
