// An operation whose work starts in start() and ends later by itself: subclasses override
// start(), set executing, begin the work and end it with finish() or fail().
#pragma once

#include "Application/VKOperation.h"

class VK_EXPORT VKConcurrentOperation : public VKOperation
{
public:
    VKConcurrentOperation();
    ~VKConcurrentOperation() override;

    // Abstract: throws VKInvalidArgumentException "Called Abstract Medod".
    void start() override;

    // Called first by finish(), for tidying up; does nothing here.
    virtual void willFinish();
    // willFinish(), then executing becomes false, then finished becomes true, so observers of
    // "isFinished" see a stopped operation.
    void finish();
    // Records the failure as VKOperation does, then finishes.
    void fail(const VKError &error) override;

    bool isFinished() const override;
    bool isExecuting() const override;
    bool isConcurrent() const override;
    void setFinished(bool finished);
    void setExecuting(bool executing);

    // "isFinished" follows "finished" and "isExecuting" follows "executing"; no other key has
    // dependent keys.
    QSet<QString> keyPathsForValuesAffectingValueForKey(const QString &key) const override;
    // "finished" and "executing" besides the base class's keys.
    QVariant valueForKey(const QString &key) const override;

protected:
    struct Private;
    explicit VKConcurrentOperation(std::unique_ptr<Private> d);

private:
    // Owned by the base class.
    Private *d;
};
