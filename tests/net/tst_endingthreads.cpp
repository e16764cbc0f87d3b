// SPDX-License-Identifier: MIT
#include "net/processend.h"

#include <QProcess>
#include <QTest>

#include <cstdlib>
#include <future>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <thread>

/// The process ends while a thread that has used TLS is still on its last steps.
class TestEndingThreads : public QObject
{
    Q_OBJECT

private slots:
    void endingThreadSurvivesTheExit();
};

namespace
{

const char *const kEndWithThread = "--end-with-a-thread";

thread_local bool stopsAtNextFree = false;
std::thread lastThread;
std::promise<void> threadIsEnding;
std::promise<void> exitIsOver;

void *Allocate(size_t size, const char *, int)
{
    return std::malloc(size);
}

void *Reallocate(void *memory, size_t size, const char *, int)
{
    return std::realloc(memory, size);
}

void Free(void *memory, const char *, int)
{
    if (stopsAtNextFree) {
        stopsAtNextFree = false;
        threadIsEnding.set_value();
        exitIsOver.get_future().wait();
    }
    std::free(memory);
}

/// Has the TLS library keep something for the thread, and stop where it takes that down.
void UseTlsAndEnd()
{
    ERR_clear_error();
    stopsAtNextFree = true;
}

void LetThreadEnd()
{
    exitIsOver.set_value();
    lastThread.join();
}

/// What the test's own program does when it is started again.
int EndWithThread()
{
    if (CRYPTO_set_mem_functions(Allocate, Reallocate, Free) != 1)
        qFatal("TLS was used too early");
    // The first to register is the last to be called.
    std::atexit(LetThreadEnd);
    ProcessEnd::KeepTlsUntilTheEnd();
    lastThread = std::thread(UseTlsAndEnd);
    threadIsEnding.get_future().wait();
    return 0;
}

} // namespace

void TestEndingThreads::endingThreadSurvivesTheExit()
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QLatin1String(kEndWithThread)});
    QVERIFY2(process.waitForFinished(), "the thread waits for what is gone");
    QVERIFY2(process.exitStatus() == QProcess::NormalExit, process.readAllStandardError());
    QCOMPARE(process.exitCode(), 0);
}

int main(int argc, char *argv[])
{
    if (argc == 2 && qstrcmp(argv[1], kEndWithThread) == 0)
        return EndWithThread();
    QCoreApplication application(argc, argv);
    TestEndingThreads test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_endingthreads.moc"
