#include "config/jsonobject.h"

#include <QJsonDocument>

QJsonObject JsonObjectOf(const QByteArray &text, QJsonParseError *error)
{
    const QJsonObject read = QJsonDocument::fromJson(text, error).object();
    // Made anew: a key that the framework read behind a byte order mark, it would not find again,
    // and would hold a second time once it is written.
    QJsonObject object;
    for (auto member = read.begin(); member != read.end(); ++member)
        object.insert(member.key(), member.value());
    return object;
}
