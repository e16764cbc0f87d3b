// SPDX-License-Identifier: MIT
#include "examples/client/mainwindow.h"

#include "examples/client/arguments.h"
#include "ui/releasenotes.h"

#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

#include <optional>

namespace
{

constexpr int kSaveAfterMs = 300;

/// Text from outside: never taken for markup.
QLabel *NewLabel()
{
    auto *label = new QLabel;
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

} // namespace

MainWindow::MainWindow()
    : m_heading(NewLabel()), m_meeting(NewLabel()), m_draft(new QPlainTextEdit),
      m_language(new QPushButton), m_check(new QPushButton), m_message(NewLabel())
{
    QFont large = m_heading->font();
    large.setPointSize(large.pointSize() * 3 / 2);
    m_heading->setFont(large);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_language);
    bottom->addStretch();
    bottom->addWidget(m_check);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_heading);
    layout->addWidget(m_meeting);
    layout->addWidget(m_draft);
    layout->addWidget(m_message);
    layout->addLayout(bottom);
    resize(480, 292);

    m_draft->setPlainText(m_session.draft);
    ShowTexts();

    m_saveSoon.setSingleShot(true);
    m_saveSoon.setInterval(kSaveAfterMs);
    connect(&m_saveSoon, &QTimer::timeout, this, &MainWindow::Save);
    // Not restarted by each key: otherwise text that is typed without a pause is never saved.
    connect(m_draft, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_saveSoon.isActive())
            m_saveSoon.start();
    });
    connect(m_check, &QPushButton::clicked, this, &MainWindow::CheckForUpdates);
    connect(m_language, &QPushButton::clicked, this, &MainWindow::ChangeLanguage);
}

void MainWindow::TakeArguments(const QStringList &arguments)
{
    const std::optional<StartArguments> request = ReadArguments(arguments);
    if (!request) {
        m_message->setText(Text("The arguments of this start were refused.", "启动参数已被拒绝。"));
    } else {
        m_message->clear();
        if (!request->profile.isEmpty())
            m_profile = request->profile;
        if (!request->meeting.isEmpty()) {
            m_session.meeting = request->meeting;
            Save();
        }
    }
    ShowTexts();
    ComeToTheFront();
}

void MainWindow::ShowUnseenNotes()
{
    const QString notes = ClientFiles::UnseenNotes();
    if (notes.isEmpty())
        return;

    auto *dialog = new QDialog(this);
    dialog->setWindowTitle(Text("New in %1", "%1 的新内容").arg(m_version));
    // Rich text that loads nothing: the notes come from the network.
    auto *text = new QTextEdit;
    auto *document = new ReleaseNotesDocument(text);
    document->SetNotes(notes);
    text->setDocument(document);
    text->setReadOnly(true);
    text->setTextInteractionFlags(Qt::NoTextInteraction);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
    connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    auto *layout = new QVBoxLayout(dialog);
    layout->addWidget(text);
    layout->addWidget(buttons);

    // Only now: a client that is killed before shows them again.
    connect(dialog, &QDialog::finished, dialog, [dialog] {
        ClientFiles::MarkNotesSeen();
        dialog->deleteLater();
    });
    dialog->open();
}

void MainWindow::closeEvent(QCloseEvent *)
{
    Save();
}

QString MainWindow::Text(const char *english, const char *chinese) const
{
    return QString::fromUtf8(m_english ? english : chinese);
}

void MainWindow::ShowTexts()
{
    const QString title = Text("Sample Client", "示例客户端") + QLatin1Char(' ') + m_version;
    m_heading->setText(title);
    setWindowTitle(m_profile.isEmpty() ? title : title + QStringLiteral(" - ") + m_profile);
    m_meeting->setText(m_session.meeting.isEmpty()
                           ? Text("No meeting is open.", "没有打开的会议。")
                           : Text("Meeting: %1", "会议：%1").arg(m_session.meeting));
    m_draft->setPlaceholderText(
        Text("What you write here is saved as you go.", "此处内容会随时保存。"));
    m_language->setText(Text("中文", "English"));
    m_check->setText(Text("Check for updates", "检查更新"));
}

void MainWindow::ComeToTheFront()
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void MainWindow::CheckForUpdates()
{
    // By the user's click only: a client that did it whenever it starts would be started again by
    // the updater, which would be started again by the client.
    const QString updater = QCoreApplication::applicationDirPath() +
                            QLatin1String("/AutoUpdate/AutoUpdate" UPDATER_SUFFIX);
    Save();
    if (QProcess::startDetached(updater, {QStringLiteral("-noremid")}))
        m_message->setText(Text("Looking for a newer version.", "正在检查新版本。"));
    else
        m_message->setText(Text("The updater cannot be started.", "无法启动更新程序。"));
}

void MainWindow::ChangeLanguage()
{
    m_english = !m_english;
    const bool saved = ClientFiles::SetEnglish(m_english);
    m_message->setText(saved ? QString()
                             : Text("The language could not be saved.", "语言设置无法保存。"));
    ShowTexts();
}

void MainWindow::Save()
{
    m_session.draft = m_draft->toPlainText();
    const bool saved = ClientFiles::SaveSession(m_session);
    m_message->setText(saved ? QString() : Text("Your text could not be saved.", "文本无法保存。"));
    if (!saved)
        m_saveSoon.start(); // another program may have had the file open
}
