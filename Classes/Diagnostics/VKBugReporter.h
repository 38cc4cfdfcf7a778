// The bug reporter: a window in which the user files a bug report or a feature request on
// purpose, with name, e-mail address, type, title, description and one optional attached file.
// The report is posted to the report server or opened as a message in the mail program.
#pragma once

#include "Diagnostics/VKReporter.h"

#include <QString>

#include <memory>

class QLabel;
class QObject;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QWidget;
class VKMainLoopTimer;

class VK_EXPORT VKBugReporter : public VKReporter
{
public:
    // The report types.
    static const QString bugReportType;      // "Bug Report"
    static const QString featureRequestType; // "Feature Request"

    // The window is loaded on first use (showReportWindow()). Main thread only, like every call.
    VKBugReporter();
    ~VKBugReporter() override;

    // Loads "VKBugReporter" once, clears the form and brings the window to the front. A
    // description that cannot be loaded logs "Could not load nib named VKBugReporter" and shows
    // nothing.
    void showReportWindow(QObject *sender);
    // Starts a file chooser (files only) in the desktop folder; the first chosen file becomes
    // the attachment.
    void chooseAttachment(QObject *sender);
    // Orders the window out and opens bugReport() in the mail program.
    void showReportInMail(QObject *sender);
    // Posts the form (reportFields()) to the bug report address.
    void sendReport(QObject *sender);

    // The mail text, with its lines of 75 hyphens.
    QString bugReport() const;
    // The form as sendReport() posts it; a missing text is sent as "(null)".
    QVariantMap reportFields() const;

    // Properties; a null string is "nothing entered".
    QString reporterName() const;
    void setReporterName(const QString &name);
    QString reporterEmailAddress() const;
    void setReporterEmailAddress(const QString &address);
    QString reportTitle() const;
    void setReportTitle(const QString &title);
    QString reportType() const;
    // Stores the type; "Bug Report" and "Feature Request" also put their template text into the
    // description (or empty it when the template is empty); any other type leaves it alone.
    void setReportType(const QString &type);
    QString reportAttachment() const;
    void setReportAttachment(const QString &path);
    // The template texts of the window's hidden fields (null before the window is loaded).
    QString defaultBugReport() const;
    QString defaultFeatureRequest() const;

    // Outlets (null before the window is loaded).
    QWidget *reportWindow() const;
    QPlainTextEdit *reportDescriptionTextView() const;
    QPushButton *sendButton() const;
    QPushButton *openInMailClientButton() const;
    QProgressBar *sendProgressIndicator() const;
    QLabel *sendProgressTextField() const;
    // The pending 1.75-second timer that orders the window out after a send; null otherwise.
    std::shared_ptr<VKMainLoopTimer> closeTimer() const;

    // Where mail reports go (the maker's support address unless set).
    static QString supportAddress();
    static void setSupportAddress(const QString &address);

    void connectionDidReceiveResponse(VKURLConnection *connection, int statusCode,
                                      const QString &reasonPhrase) override;
    void connectionDidReceiveData(VKURLConnection *connection, const QByteArray &data) override;
    void connectionDidFailWithError(VKURLConnection *connection, const VKError &error) override;
    void connectionDidFinishLoading(VKURLConnection *connection) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
