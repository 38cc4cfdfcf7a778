// Loads a window's interface description: a Qt Designer ".ui" file shipped in the library's
// resources, read at run time so that a missing or broken description can be noticed.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

class QWidget;

class VK_EXPORT VKInterfaceDescription
{
public:
    // The widget tree of "<name>.ui", owned by the caller (or by `parent`). It is read from the
    // folder set with setSearchFolder() when one is set, else from the library's resources.
    // Null when the file is missing or cannot be read as an interface description; `errorString`
    // then says why. Main thread only.
    static QWidget *load(const QString &name, QWidget *parent = nullptr,
                         QString *errorString = nullptr);

    // Reads descriptions from `folder` instead of the resources (empty: the resources again).
    // For tests and for makers who restyle the windows.
    static void setSearchFolder(const QString &folder);
    static QString searchFolder();

private:
    VKInterfaceDescription() = delete;
};
