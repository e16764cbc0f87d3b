#include "release/publish/logreport.h"

#include <QCoreApplication>

#include <cstdio>

/// reportlogs report LOG... [--html FILE]: prints the report, and writes its page to FILE.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    ReportOptions options;
    options.logs = QCoreApplication::arguments().mid(2);
    const int html = options.logs.indexOf(QStringLiteral("--html"));
    if (html >= 0 && html + 1 < options.logs.size()) {
        options.htmlFile = options.logs.takeAt(html + 1);
        options.logs.removeAt(html);
    }
    Progress progress(Progress::Lines);
    const Outcome outcome = ReportLogs(options, progress);
    progress.End();
    return Report(outcome, false);
}
