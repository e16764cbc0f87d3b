// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QString>
#include <QtGlobal>

/**
 * Makes sure that the machine's memory was in use a moment ago. A virtual machine returns memory to
 * its host after some seconds without use. The first write to each page then takes several times as
 * long, so a program would look faster when it runs right after another one that needs much memory.
 */
class WarmMemory
{
public:
    /// Uses @p mebibytes of memory, as a file in the folder for temporary files, which must be in
    /// memory. Ends the program with an error when there is not enough.
    explicit WarmMemory(int mebibytes);
    ~WarmMemory();

    /// Frees the memory for the program that is measured next.
    void Release();

private:
    Q_DISABLE_COPY(WarmMemory)

    QFile m_file;
};
