#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

#include <memory>

/**
 * Writes a zip archive piece by piece, so that no file has to fit into memory. The archive is one
 * of the classic kind, which every reader takes: sizes and checksums stand in the header before the
 * data, nothing is encrypted, and names are UTF-8. The bytes depend on names, data and methods
 * alone.
 *
 * Each call fails after one has failed; Error() tells why. One thread at a time.
 */
class ZipWriter
{
public:
    enum Method { Stored = 0, Deflated = 8 };
    enum ErrorKind { NoError, WriteError, TooLarge };

    /// @p archive is an open, empty file without a buffer of its own, and gets at most @p maxSize
    /// bytes, which are less than 4 GiB.
    ZipWriter(QFile &archive, qint64 maxSize);
    ~ZipWriter();
    Q_DISABLE_COPY(ZipWriter)

    /// @p path has no slash at its end.
    bool AddFolder(const QString &path);

    /// Begins a file; its data follows by Write() and ends with EndFile().
    bool BeginFile(const QString &path, Method method);
    bool Write(const char *data, qint64 size);
    bool EndFile();

    /// What the data of the file that was ended last takes in the archive, in bytes.
    qint64 PackedSize() const;

    /// Takes the file that was ended last back; another one, or the end, may follow.
    bool TakeBack();

    /// Writes the list of what is in the archive. Nothing can be added afterwards.
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
    std::unique_ptr<Item> m_item; ///< the one being written, or written last
    std::unique_ptr<Deflater> m_deflater;
    QByteArray m_directory; ///< of all items before it
    int m_count = 0;        ///< the entries in m_directory
    ErrorKind m_error = NoError;
    QString m_errorText;
};
