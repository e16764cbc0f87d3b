#pragma once

#include "config/global.h"
#include "release/publish/filedigests.h"
#include "release/publish/findings.h"

#include <QByteArray>
#include <QString>

/// A release as the check announces it.
struct Offer {
    QString id;      ///< file name of the package, and what its address ends with
    QString version; ///< as the client's configuration will have it
    QString url;     ///< the package's address; only what follows its last "/" counts
    QString notes;   ///< Chinese, the separator, English
    bool forced = false;
    Global::PackageKind kind = Global::ZipPackage;
    FileDigests package; ///< of a reply that was read: without the SHA-256, which it does not hold
};

/// The part of the notes that a user of @p language is shown.
QString NotesFor(const Offer &offer, const QString &language);

/// The service's answer that announces @p offer: JSON on one line.
QByteArray OfferReply(const Offer &offer);

/// The service's answer that there is nothing newer.
QByteArray NoOfferReply();

/**
 * Reads what OfferReply() writes into @p offer. Finds everything in @p reply that the updater would
 * read as something else than it says: a wrong type, a missing key, an empty text.
 */
Findings ReadOffer(const QByteArray &reply, Offer &offer);

/// The same for NoOfferReply().
Findings CheckNoOffer(const QByteArray &reply);
