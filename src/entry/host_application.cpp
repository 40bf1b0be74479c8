// The Qt application object for hosts that are not Qt programs (an interpreter): charts need one.
#include "AlgoFactoryHost.h"
#include "entry_guard.h"

#include <QApplication>
#include <QGuiApplication>
#include <mutex>

ALGO_API bool AlgoFactory_StartApplication(void)
{
    return algofactory::guardEntry("AlgoFactory_StartApplication", [] {
        static std::mutex lock;
        std::lock_guard<std::mutex> guard(lock);
        if (!QCoreApplication::instance())
        {
            if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
                qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
                qputenv("QT_QPA_PLATFORM", "offscreen");
            // Lives as long as the process; Qt keeps a reference to argc and argv.
            static int argc = 1;
            static char name[] = "algofactory";
            static char* argv[] = {name, nullptr};
            new QApplication(argc, argv);
        }
        return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
    });
}
