// Helpers shared by both Diagnostics test programs.
#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

// Writes a file, making its folders, and answers its path.
inline QString writeFile(const QString &path, const QByteArray &contents = "log\n")
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(contents);
    return path;
}
