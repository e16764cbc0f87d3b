// SPDX-License-Identifier: MIT
#include "tests/longrun/liveobjects.h"

#include <QAbstractEventDispatcher>
#include <QMetaObject>
#include <QObject>
#include <QThread>
#include <QtCore/private/qhooks_p.h>

#include <algorithm>
#include <mutex>
#include <unordered_set>

namespace
{

struct Watched {
    std::mutex mutex;
    std::unordered_set<QObject *> objects;
};

/// Never destroyed, because objects are destroyed until the process ends.
Watched &All()
{
    static auto *all = new Watched;
    return *all;
}

void Add(QObject *object)
{
    const std::lock_guard<std::mutex> lock(All().mutex);
    All().objects.insert(object);
}

void Remove(QObject *object)
{
    const std::lock_guard<std::mutex> lock(All().mutex);
    All().objects.erase(object);
}

} // namespace

void LiveObjects::Watch()
{
    qtHookData[QHooks::AddQObject] = reinterpret_cast<quintptr>(&Add);
    qtHookData[QHooks::RemoveQObject] = reinterpret_cast<quintptr>(&Remove);
}

std::vector<std::string> LiveObjects::Classes()
{
    const std::lock_guard<std::mutex> lock(All().mutex);
    std::vector<std::string> classes;
    for (const QObject *object : All().objects)
        classes.emplace_back(object->metaObject()->className());
    std::sort(classes.begin(), classes.end());
    return classes;
}

int LiveObjects::Timers()
{
    const std::lock_guard<std::mutex> lock(All().mutex);
    int timers = 0;
    for (QObject *object : All().objects) {
        if (object->thread() == QThread::currentThread())
            timers += QAbstractEventDispatcher::instance()->registeredTimers(object).size();
    }
    return timers;
}
