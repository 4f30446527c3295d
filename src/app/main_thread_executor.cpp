#include "app/main_thread_executor.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace orvelle {

void QtMainExecutor::post(std::function<void()> task) {
    QCoreApplication* application = QCoreApplication::instance();
    if (application == nullptr) {
        return;
    }
    QMetaObject::invokeMethod(application, std::move(task), Qt::QueuedConnection);
}

QtMainExecutor& mainExecutor() {
    static QtMainExecutor executor;
    return executor;
}

} // namespace orvelle
