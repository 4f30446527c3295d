#pragma once

// Runs the Qt event loop until the predicate holds; false when the time runs out first.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <functional>

namespace orvelle::testing {

inline bool processEventsUntil(const std::function<bool()>& predicate, int milliseconds = 30000) {
    QElapsedTimer timer;
    timer.start();
    while (!predicate()) {
        if (timer.elapsed() > milliseconds) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

} // namespace orvelle::testing
