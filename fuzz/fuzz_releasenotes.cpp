// SPDX-License-Identifier: MIT
// The release notes, as the prompt shows them.

#include "config/global.h"
#include "fuzz/support/promptwatch.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"
#include "ui/updatedialog.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QTextDocument>
#include <QTextEdit>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

namespace
{

/// One second, doubled for the sanitizers.
constexpr double kLayoutLimitSeconds = 2;

/// Parts of notes, so that inputs stay well-formed. Start and end tags may become separated.
constexpr std::array<const char *, 56> kParts{
    "<p>",
    "</p>",
    "<br>",
    "<ul>",
    "<ol start=3>",
    "<li>",
    "</li>",
    "</ul>",
    "<b>",
    "</b>",
    "<table border=1 width='100%'>",
    "<table>",
    "<tr>",
    "<td>",
    "<td colspan=2 rowspan=2>",
    "<th colspan=\"100\">",
    "<td rowspan=99>",
    "<table width=\"1920\" cellpadding=99999>",
    "<o:p></o:p>",
    "<?xml version=\"1.0\"?>",
    "<![if !supportLists]>",
    "<a href=https://example.invalid/?id=1>",
    "<style>p, li b > i { max-width:1200px; }</style>",
    "<img src=\"data:image/gif;base64,R0lGODlhAQABAIAAAP8A/wAAACwAAAAAAQABAAACAkQBADs=\">",
    "</td>",
    "</tr>",
    "</table>",
    "<hr>",
    "<h1>",
    "</h1>",
    "<pre>",
    "</pre>",
    "<center>",
    "<blockquote>",
    "<dl><dt>a<dd>b</dl>",
    "<div align=right>",
    "<span style=\"color:red\">",
    "</span>",
    "<p style='margin:999px;text-indent:99em'>",
    "<font size=7 color=\"#ff0000\">",
    "<img src=\":/image/resourceimg/logo.png\" width=999 height=999>",
    "<img src='foreign.png'>",
    "<img src=\"file:///foreign.png\" align=left>",
    "<body background=\"foreign.png\">",
    "<link rel=stylesheet href='foreign.css'>",
    "<style>p { margin: 1px; }</style>",
    "<style>* * { background: url(foreign.png) }</style>",
    "<td background=\"foreign.png\">",
    "<p style=\"background-image:url('foreign.png')\">",
    "<ul style=\"list-style-image: url(foreign.png)\">",
    "<a href=\"//foreign/share\">",
    "</a>",
    "<!-- c -->",
    "&lt;",
    "&#65535;",
    "<p style=\"page-break-before:always; line-height:999%\">"};

/// How many sockets the process has open.
int OpenSockets()
{
    const QFileInfoList descriptors =
        QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::Files | QDir::System);
    return int(
        std::count_if(descriptors.cbegin(), descriptors.cend(), [](const QFileInfo &descriptor) {
            return descriptor.symLinkTarget().contains(QLatin1String("socket:"));
        }));
}

/// The prompt with its notes; shown once, so that the fonts are loaded.
class Prompt : public UpdateDialog
{
public:
    Prompt()
    {
        Global::instance.language = QStringLiteral("en");
        Show(QStringLiteral("<p>first <b>bold</b> <i>italic</i> <code>code</code> \u4e2d</p>"));
    }

    QTextDocument &Show(const QString &notes)
    {
        Global::instance.latestVersionInfo = notes;
        updateMode(QStringLiteral("1"));
        auto *edit = findChild<QTextEdit *>(QStringLiteral("updateText"));
        QImage image(edit->viewport()->size(), QImage::Format_RGB32);
        edit->viewport()->render(&image);
        return *edit->document();
    }
};

Prompt &ThePrompt()
{
    static Prompt prompt;
    return prompt;
}

/// Shows the notes, which must not look at any file.
const QTextDocument &ShowWatched(const QString &notes)
{
    const OnlyFonts onlyFonts;
    return ThePrompt().Show(notes);
}

} // namespace

// Outside the namespace, because the macro declares a function; not in the function with C linkage,
// because the declared function has C++ linkage.
static void InitResources()
{
    Q_INIT_RESOURCE(resources);
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static TestHome home;
    static QApplication application(*argc, *argv);
    InitResources();
    ThePrompt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString notes = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    const CleanLog log;
    const int sockets = OpenSockets();
    const double start = CpuSeconds();
    const QTextDocument &document = ShowWatched(notes);
    const double seconds = CpuSeconds() - start;
    Require(seconds < kLayoutLimitSeconds, "notes are shown within a second",
            QString::number(seconds));
    Require(OpenSockets() == sockets, "notes open no connection");
    const QSizeF extent = document.size();
    Require(std::isfinite(extent.width()) && std::isfinite(extent.height()) &&
                extent.height() >= 0 && extent.width() >= 0,
            "the notes have a finite size");
    return 0;
}

/// Half of the time inserts a part of well-formed notes, half of the time mutates as libFuzzer does
/// by default.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize,
                                          unsigned int seed)
{
    std::minstd_rand random(seed);
    if (random() % 2 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    const QByteArray part(kParts.at(random() % kParts.size()));
    if (size + size_t(part.size()) > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    uint8_t *place = data + random() % (size + 1);
    std::copy_backward(place, data + size, data + size + part.size());
    std::copy(part.cbegin(), part.cend(), place);
    return size + size_t(part.size());
}
