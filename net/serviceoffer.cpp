// SPDX-License-Identifier: MIT
#include "net/serviceoffer.h"

#include "config/arguments.h"
#include "config/global.h"
#include "config/servicecontract.h"
#include "net/packagename.h"

namespace
{

/// The two switches ask for the prompt, so they override the user's earlier choice.
bool IsSilenced(const Global &global)
{
    return global.noRemind != 0 && global.latestVersion == global.noRemindVersion &&
           !HasForcingSwitch(global.cmdLineArgs);
}

ServiceOffer::Verdict Judge(const Global &global, const QString &packageName)
{
    if (global.latestVersion == global.currentVersion)
        return ServiceOffer::Verdict::Installed;
    if (IsSilenced(global))
        return ServiceOffer::Verdict::Silenced;
    if (global.update == ServiceContract::Mode::NoUpdate)
        return ServiceOffer::Verdict::NoUpdate;
    if (!IsUsablePackageName(packageName))
        return ServiceOffer::Verdict::UnusableName;
    return ServiceOffer::Verdict::Update;
}

} // namespace

QString ServiceOffer::PackagePath() const
{
    return folder.path + QLatin1Char('/') + packageName;
}

ServiceOffer ReadServiceOffer(const Global &global)
{
    ServiceOffer offer;
    offer.packageName = PackageFileName(global.latestVersionUrl);
    offer.verdict = Judge(global, offer.packageName);
    offer.folder = DownloadFolderOf(global.appName);
    return offer;
}
