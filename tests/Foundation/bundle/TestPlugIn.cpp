// A real Qt plug-in for the bundle tests: its metadata is its information dictionary, and loading
// it registers a class, which shows that the code was loaded (and only then).
#include "Foundation/VKClassRegistry.h"

#include <QObject>
#include <QtPlugin>

class VKTestPlugInClass
{
};
VK_REGISTER_ROOT_CLASS(VKTestPlugInClass)

class VKTestPlugIn : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.vessan.VessanUtilities.TestPlugIn" FILE "TestPlugIn.json")
};

#include "TestPlugIn.moc"
