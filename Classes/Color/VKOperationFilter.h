// The filter of one GEGL operation: its properties are the filter's parameters under their own
// names (with type, range, default and description from the operation), its "input" and "aux"
// pads are "inputImage" and "inputAuxImage", and "outputImage" is the operation's output.
#pragma once

#include "Color/VKFilter.h"

class VK_EXPORT VKOperationFilter : public VKFilter
{
public:
    // An empty filter for the unarchiver; it takes its operation from the archive.
    VKOperationFilter();
    // The filter of `operation`; null when GEGL has no operation of that name.
    static std::shared_ptr<VKOperationFilter> filterWithOperation(const QString &operation);
    // Whether GEGL knows the operation.
    static bool hasOperation(const QString &operation);
    // Every operation GEGL knows, sorted.
    static QStringList operationNames();

    VKImage outputImage() override;

    QString classNameForCoder() const override;

protected:
    bool setUpForName(const QString &name) override;
};
