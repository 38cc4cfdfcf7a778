// A compiled Oniguruma pattern over UTF-16 text (positions are QString indices), with the
// first-match search and the walk of the capture-history tree that the calculator needs.
// Internal to the library; a compiled pattern may be searched from several threads at once.
#pragma once

#include <QHash>
#include <QString>

#include <functional>
#include <memory>

class VKRegex
{
public:
    enum class Options {
        // Ruby syntax, escapes with the backslash, default options.
        Default,
        // Ruby syntax plus (?@<name>...) capture history, every group capturing.
        CaptureHistory,
    };

    struct Node
    {
        int group = 0;
        int level = 0;
        qsizetype location = 0;
        qsizetype length = 0;
    };

    class Match
    {
    public:
        bool found() const { return m_location >= 0; }
        qsizetype location() const { return m_location; }
        qsizetype length() const { return m_length; }
        // Depth first over the capture-history tree: `visit(node, false)` at a node's first
        // visit and `visit(node, true)` after its children. The root is group 0.
        void walkCaptureTree(const std::function<void(const Node &, bool atLast)> &visit) const;

    private:
        friend class VKRegex;
        qsizetype m_location = -1;
        qsizetype m_length = 0;
        std::shared_ptr<void> m_region;
    };

    VKRegex(const QString &pattern, Options options);
    ~VKRegex();
    VKRegex(const VKRegex &) = delete;
    VKRegex &operator=(const VKRegex &) = delete;

    bool isValid() const { return m_regex != nullptr; }
    // The engine's message when the pattern did not compile.
    QString errorText() const { return m_error; }
    // Group number to name, for named groups.
    const QHash<int, QString> &groupNames() const { return m_groupNames; }
    int numberOfGroups() const;

    // The first match that starts at or after `from`. A search the engine gives up on (its
    // retry limits) counts as no match.
    Match search(const QString &text, qsizetype from = 0) const;

    // Every match from the start, each replaced by what `replacement` answers for it.
    QString replaceEvery(const QString &text,
                         const std::function<QString(const QString &matched)> &replacement) const;

private:
    void *m_regex = nullptr;
    QString m_error;
    QHash<int, QString> m_groupNames;
};
