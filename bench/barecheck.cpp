// SPDX-License-Identifier: MIT
// The program that the updater's start is compared with. It does the same work with as little code
// as possible: it builds two hidden windows with texts in the updater's fonts and sends one POST
// over TLS to the address given as its argument. It ends when the answer arrives.

#include <QApplication>
#include <QDialog>
#include <QFont>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QVBoxLayout>

namespace
{

/// The sizes in pixels and the weights that the updater's two windows have texts in.
constexpr struct {
    int pixelSize;
    QFont::Weight weight;
} kFonts[] = {{16, QFont::Medium}, {14, QFont::Normal}, {12, QFont::Normal}};

class BareDialog : public QDialog
{
public:
    BareDialog()
    {
        auto *const layout = new QVBoxLayout(this);
        for (const auto &each : kFonts) {
            auto *const label = new QLabel(QStringLiteral("A new version 更新"));
            QFont font;
            font.setPixelSize(each.pixelSize);
            font.setWeight(each.weight);
            label->setFont(font);
            layout->addWidget(label);
        }
        adjustSize();
    }
};

QNetworkRequest Request(const QString &address)
{
    QNetworkRequest request{QUrl(address)};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/json"));
    QSslConfiguration tls = request.sslConfiguration();
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);
    request.setSslConfiguration(tls);
    return request;
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    QApplication::setFont(QFont(QStringLiteral("微软雅黑")));
    const BareDialog prompt;
    const BareDialog progress;
    QNetworkAccessManager manager;
    QObject::connect(&manager, &QNetworkAccessManager::finished, &QCoreApplication::quit);
    manager.post(Request(QCoreApplication::arguments().value(1)), "{}");
    return QApplication::exec();
}
