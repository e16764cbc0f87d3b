// SPDX-License-Identifier: MIT
#include "release/publish/tree/indexpage.h"

#include "release/publish/base/report.h"
#include "release/publish/tree/releasetree.h"
#include "ui/releasenotes.h"

#include <QTextDocument>
#include <QVector>

namespace
{

// The notes look as in the prompt: 432 by 120 pixels, the same font and colours, and white space is
// kept in plain text.
const char *const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width">
<title>%1</title>
<style>
body { font: 16px/1.5 sans-serif; color: #203152; margin: 2em auto; max-width: 50em; padding: 0 1em }
td, th { text-align: left; vertical-align: top; padding: .2em 1em .2em 0 }
code { overflow-wrap: anywhere }
.notes { width: 432px; height: 120px; border: 1px solid #d2d6dc; border-radius: 2px; overflow: auto;
    padding: 0; font: 12px/18px sans-serif; color: #4d5a75; background: #fff }
.plain { white-space: pre-wrap; overflow-wrap: anywhere }
</style>
</head>
<body>
<h1>%1</h1>
)";

/// For the frame of the notes, which does not inherit the page's style.
const char *const kNotesStyle =
    "<style>body { margin: 4px; font: 12px/18px sans-serif; color: #4d5a75 }</style>";

struct Fact {
    QString name;
    QString value; ///< HTML
};

QString Code(const QString &text)
{
    return QStringLiteral("<code>%1</code>").arg(text.toHtmlEscaped());
}

QVector<Fact> Facts(const Offer &offer)
{
    const bool isZip = offer.kind == ServiceContract::ZipPackage;
    const QString address = ReleaseTree::PackagesPath.mid(1) + offer.id;
    return {
        {QStringLiteral("Version"), Code(offer.version)},
        {QStringLiteral("Update"), offer.forced
                                       ? QStringLiteral("forced: the prompt offers only to update")
                                       : QStringLiteral("optional: the user may postpone it")},
        {QStringLiteral("Package"),
         QStringLiteral("<a href=\"%1\">%2</a>").arg(address.toHtmlEscaped(), Code(offer.id))},
        {QStringLiteral("Kind"), isZip ? QStringLiteral("zip, copied over the client's folder")
                                       : QStringLiteral("installer, started by the updater")},
        {QStringLiteral("Size"),
         QStringLiteral("%1 (%2 bytes)").arg(SizeText(offer.package.size)).arg(offer.package.size)},
        {QStringLiteral("MD5"), Code(offer.package.md5)},
        {QStringLiteral("SHA-1"), Code(offer.package.sha1)},
        {QStringLiteral("SHA-256"), Code(offer.package.sha256)},
    };
}

/// Rich text or plain text, by the same decision as in the prompt.
QString Notes(const QString &notes, const QString &title, const QString &language)
{
    const QString heading = QStringLiteral("<h2>%1</h2>\n").arg(title);
    if (ReleaseNotesDocument::IsRichText(notes)) {
        return heading +
               QStringLiteral(
                   "<iframe class=\"notes\" lang=\"%1\" title=\"%2\" sandbox srcdoc=\"%3\">"
                   "</iframe>\n")
                   .arg(language, title, (QLatin1String(kNotesStyle) + notes).toHtmlEscaped());
    }
    return heading + QStringLiteral("<div class=\"notes plain\" lang=\"%1\">%2</div>\n")
                         .arg(language, notes.toHtmlEscaped());
}

} // namespace

QByteArray IndexPage(const Offer &offer)
{
    const QString title = QStringLiteral("Version %1").arg(offer.version).toHtmlEscaped();
    QString page = QString::fromUtf8(kHead).arg(title) + QStringLiteral("<table>\n");
    for (const Fact &fact : Facts(offer))
        page += QStringLiteral("<tr><th>%1</th><td>%2</td></tr>\n").arg(fact.name, fact.value);
    page += QStringLiteral("</table>\n");
    page += Notes(NotesFor(offer, QStringLiteral("zh")), QStringLiteral("Notes in Chinese"),
                  QStringLiteral("zh"));
    page += Notes(NotesFor(offer, QStringLiteral("en")), QStringLiteral("Notes in English"),
                  QStringLiteral("en"));
    return (page + QStringLiteral("</body>\n</html>\n")).toUtf8();
}

Findings CheckIndexPage(const QByteArray &page, const Offer &offer)
{
    Findings findings;
    const QString text = QString::fromUtf8(page);
    for (const Fact &fact : Facts(offer)) {
        if (!text.contains(fact.value)) {
            findings.append({QStringLiteral("index"), QString(),
                             QStringLiteral("index.html has a different %1 than the reply and the "
                                            "package; publish the release again")
                                 .arg(fact.name)});
        }
    }
    return findings;
}
