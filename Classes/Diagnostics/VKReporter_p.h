// What the two report windows share: the host's name and information strings, loading a
// window's description with its outlets, and the send progress shown in it. Main thread only.
#pragma once

#include "Foundation/VKLogger.h"

#include <QString>
#include <QWidget>

#include <type_traits>

class QLabel;
class QProgressBar;

namespace VKReportWindow {

// The main bundle's information string `key`, null when there is none.
QString infoString(const QString &key);
// The host's name: the bundle name, else the application object's.
QString applicationName();

// Finds the child `name` of type T and stores it in `outlet`; answers whether there is one.
template <typename T>
bool outlet(const QWidget *window, T *&outlet, const char *name)
{
    static_assert(std::is_base_of_v<QObject, T>);
    outlet = window->findChild<T *>(QLatin1String(name));
    return outlet != nullptr;
}

// Shows the window above the others and gives it the focus.
void bringToFront(QWidget *window);
// A moving indicator and `text` under it, while an upload is under way.
void startProgress(QProgressBar *indicator, QLabel *textField, const QString &text);
// Stops a moving indicator; a determinate one keeps its value.
void stopIndicator(QProgressBar *indicator);

// Not for callers: the part of load() that is not a template.
QWidget *loadDescription(const QString &name);
void logMissingDescription(const QString &name, const VKLogContext &context);

// Loads the description `name` as a top-level window and hands it to `findOutlets`. A missing
// description, or one that `findOutlets` finds incomplete, is as good as none: it logs
// "Could not load nib named <name>" under `context` and answers null.
template <typename FindOutlets>
QWidget *load(const QString &name, const VKLogContext &context, FindOutlets findOutlets)
{
    QWidget *window = loadDescription(name);
    if (window && findOutlets(window))
        return window;
    delete window;
    logMissingDescription(name, context);
    return nullptr;
}

} // namespace VKReportWindow
