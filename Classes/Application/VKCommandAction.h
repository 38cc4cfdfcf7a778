// A menu item or toolbar button bound to a command name: triggering it sends the command along
// the command chain (see VKResponder), and it enables itself only while something in the chain
// responds to the command and validates it, so menus follow the action targets by themselves.
//
//     auto *help = new VKCommandAction(QStringLiteral("Help"), QStringLiteral("showHelp"), menu);
//     menu->addAction(help);
//
// It re-validates when a target posts VKActionTargetStateCouldHaveBeenChangedNotification for
// its command, when the focus widget changes, after the application finished launching and
// whenever validate() is called (a menu's aboutToShow, for instance). Main thread only.
#pragma once

#include "Foundation/VKExport.h"

#include <QAction>
#include <QString>

class VK_EXPORT VKCommandAction : public QAction
{
    Q_OBJECT

public:
    VKCommandAction(const QString &text, const QString &command, QObject *parent = nullptr);
    ~VKCommandAction() override;

    QString command() const;

    // Enables the action when an object along the chain responds to the command and, when it is
    // a responder, validates this item; disables it otherwise. Answers the new state.
    bool validate();
    // Sends the command with this action as the sender; false when nothing performed it.
    bool perform();

private:
    QString m_command;
    quint64 m_stateObservation = 0;
    quint64 m_launchObservation = 0;
};
