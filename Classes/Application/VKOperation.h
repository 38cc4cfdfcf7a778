// An operation that can fail with an error value; its dependants stop being ready when it fails.
// "isFailed" and "error" are observable and readable by key.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKOperationBase.h"

class VK_EXPORT VKOperation : public VKOperationBase
{
public:
    VKOperation();
    ~VKOperation() override;

    // Stores the error, then announces "isFailed" as true, so observers find the error in place.
    virtual void fail(const VKError &error);

    // Null until the operation failed.
    VKError error() const;
    bool isFailed() const;

    // Not ready when the base rule says so, or while any dependency that is a VKOperation has
    // failed. Other dependencies are judged by the base rule alone.
    bool isReady() const override;

    // "isFailed" and "error" (a VKError) besides the base class's keys.
    QVariant valueForKey(const QString &key) const override;

protected:
    struct Private;
    explicit VKOperation(std::unique_ptr<Private> d);

private:
    // Owned by the base class.
    Private *d;
};
