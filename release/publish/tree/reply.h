// SPDX-License-Identifier: MIT
#pragma once

#include "config/servicecontract.h"
#include "release/publish/base/filedigests.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>

/// A release as the answer to a check announces it.
struct Offer {
    QString id;      ///< the package's file name, which is also the end of its address
    QString version; ///< the version that the client's configuration will contain
    QString url;     ///< the package's address; the updater uses only the part after the last "/"
    QString notes;   ///< the Chinese notes, the separator, the English notes
    bool forced = false;
    ServiceContract::PackageKind kind = ServiceContract::ZipPackage;
    FileDigests
        package; ///< without the SHA-256 if it was read from a reply, which does not contain it
};

/// The part of the notes that is shown to a user of @p language.
QString NotesFor(const Offer &offer, const QString &language);

/// The service's answer that announces @p offer, as JSON on one line.
QByteArray OfferReply(const Offer &offer);

/// The service's answer that there is nothing newer.
QByteArray NoOfferReply();

/**
 * Reads into @p offer what OfferReply() has written. The findings are everything in @p reply that
 * the updater would misread: a wrong type, a missing key, an empty text.
 */
Findings ReadOffer(const QByteArray &reply, Offer &offer);

/// The same checks for the answer of NoOfferReply().
Findings CheckNoOffer(const QByteArray &reply);
