#pragma once

#include <QFile>
#include <QString>
#include <QtGlobal>

/**
 * Memory of the machine that was used a moment ago. A virtual machine gives back to its host what
 * has lain unused for seconds, and takes several times as long for the first write to each page
 * that it has to ask for again: whoever comes soon after another big user would look the faster.
 */
class WarmMemory
{
public:
    /// Takes @p mebibytes of memory into use, as a file in the folder for temporary ones, which is
    /// to lie in memory; fails the program when there is not as much.
    explicit WarmMemory(int mebibytes);
    ~WarmMemory();

    /// Leaves it to whoever needs memory next.
    void Release();

private:
    Q_DISABLE_COPY(WarmMemory)

    QFile m_file;
};
