// A link of the command chain: an object that may handle named commands (menu items, toolbar
// buttons) and passes the ones it does not handle to its next responder.
//
// A command is a name such as "showHelp". An object handles it when it has a public slot or
// Q_INVOKABLE method of that name that takes nothing or the sender (a QObject *):
//
//     class HelpTarget : public VKActionTarget
//     {
//         Q_OBJECT
//     public:
//         Q_INVOKABLE void showHelp(QObject *sender);
//     };
//
// A command sent from an action (sendCommand) is offered, in this order, to the focus widget and
// its parent widgets up to the window (any QObject with such a method handles it), then to the
// application's responder and the responders linked after it (the action dispatch and its
// targets). The first object that responds performs it. Main thread only, as widgets are.
#pragma once

#include "Foundation/VKExport.h"

#include <QObject>
#include <QPointer>
#include <QString>

class QAction;

class VK_EXPORT VKResponder : public QObject
{
    Q_OBJECT

public:
    explicit VKResponder(QObject *parent = nullptr);
    ~VKResponder() override;

    // Not owned; becomes null when that responder is destroyed.
    VKResponder *nextResponder() const;
    void setNextResponder(VKResponder *responder);

    // Whether this object handles the command itself. The base answers whether the object has
    // a public slot or invokable method of that name taking nothing or the sender.
    virtual bool respondsToSelector(const QString &command) const;
    // Performs the command here when this object responds to it, otherwise asks the next
    // responders in turn; false when no one performed it.
    bool tryToPerform(const QString &command, QObject *sender);
    // Whether an action that sends a command this object responds to may be enabled now.
    // The base answers true.
    virtual bool validateMenuItem(QAction *item) const;

    virtual bool acceptsFirstResponder() const;
    virtual bool becomeFirstResponder();

    // The head of the application's chain: one responder per application object, made on
    // first use and destroyed with it. Null when there is no application object.
    static VKResponder *applicationResponder();

    // The object a command sent now would reach: along the focus widget and its parents, then
    // along the application's chain. Null when nothing responds.
    static QObject *targetForCommand(const QString &command);
    // Performs the command on targetForCommand(); false when nothing responds.
    static bool sendCommand(const QString &command, QObject *sender);
    // Whether `object` has a public slot or invokable method named `command` that takes
    // nothing or the sender; asks respondsToSelector() of responders.
    static bool objectRespondsToCommand(const QObject *object, const QString &command);
    // Calls that method of `object` (the one taking the sender when there are both); false
    // when there is none.
    static bool invokeCommand(QObject *object, const QString &command, QObject *sender);

private:
    QPointer<VKResponder> m_nextResponder;
};
