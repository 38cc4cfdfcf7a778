// A small handler of application commands: it names the commands it implements (`selectors`),
// says whether they can be performed now (`valid`), and announces every possible change of that
// state, so that menus and toolbars re-validate. The action dispatch finds, makes and links the
// targets of an application at launch.
//
// A host declares a target as a default-constructible class whose name begins with
// "VDActionTarget" or "VHActionTarget", registered with its base:
//
//     class VHActionTargetHelp : public VKActionTarget
//     {
//         Q_OBJECT
//     public:
//         VHActionTargetHelp() { setSelectors({QStringLiteral("showHelp")}); setValid(true); }
//         Q_INVOKABLE void showHelp(QObject *sender);
//     };
//     VK_REGISTER_CLASS(VHActionTargetHelp, VKActionTarget)
//
// and puts VKCommandAction("Help", "showHelp") into its menus. Main thread only.
#pragma once

#include "Application/VKResponder.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <memory>

// Posted with the target's `selectors` (command names) as the notification's object.
VK_EXPORT extern const QString VKActionTargetStateCouldHaveBeenChangedNotification;
// The key of a target's validity: "valid".
VK_EXPORT extern const QString kValid;

// Key path -> object observed at that key path.
using VKControlValidationObservers = QMap<QString, std::shared_ptr<VKObservable>>;

class VK_EXPORT VKActionTarget : public VKResponder, public VKObservable, public VKKeyValueObserver
{
    Q_OBJECT

public:
    // Observes its own "valid"; starts invalid, with no commands.
    VKActionTarget();
    ~VKActionTarget() override;

    // The commands this target implements.
    QSet<QString> selectors() const;
    void setSelectors(const QSet<QString> &selectors);

    bool isValid() const;
    // Announces "valid" around the change, and only when the value changes.
    void setValid(bool valid);

    // Every change of one of these observed values may change the target's validity; each
    // posts VKActionTargetStateCouldHaveBeenChangedNotification. The objects are kept alive;
    // a key path is a key of its object (VKObservable observes single keys).
    VKControlValidationObservers invokeControlValidationObservers() const;
    // Stops observing the old objects, announces "invokeControlValidationObservers" around
    // storing the new ones, then observes each object at its key path.
    void setInvokeControlValidationObservers(const VKControlValidationObservers &observers);
    void establishControlValidation();
    void removeControlValidationKVO();
    // Whether the dictionary maps `keyPath` to this very object.
    bool isListeningForKeyPath(const QString &keyPath, const VKObservable *object) const;

    // A declared command answers `valid`; any other the base class's answer.
    bool respondsToSelector(const QString &command) const override;
    // False while text is being edited in the active window (its focus widget is an editable
    // line edit, spin box or combo box), true otherwise.
    bool validateMenuItem(QAction *item) const override;
    // Whether the active window's focus widget is an editable text field.
    static bool isEditingText();

    // Posts the state notification for "valid" of this target and for the observed key paths;
    // anything else is logged as unexpected.
    void observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                const VKKeyValueChange &change, void *context) override;

    bool automaticallyNotifiesObserversForKey(const QString &key) const override;
    QVariant valueForKey(const QString &key) const override;
    void setValueForKey(const QVariant &value, const QString &key) override;

private:
    void postStateNotification() const;

    struct Private;
    std::unique_ptr<Private> d;
};
