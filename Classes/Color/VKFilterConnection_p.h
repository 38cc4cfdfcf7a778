// Helpers shared by the archivable parts of a filter graph.
#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class VKFilter;
class VKKeyedArchiver;
class VKKeyedUnarchiver;

namespace VKFilterGraphCoding {

inline const QString filterClassNamesKey = QStringLiteral("filterClassNames");

// Writes the set of the filters' archive class names (each once).
void encodeFilterClassNames(VKKeyedArchiver &coder,
                            const QList<std::shared_ptr<VKFilter>> &filters);
// Reads that set and makes the filter factory load whatever provides a class this process does
// not know yet. Answers false when the decoding failed.
bool loadFilterClasses(VKKeyedUnarchiver &coder);
// Fails the decoding with a "value missing" error naming the key.
void failMissing(VKKeyedUnarchiver &coder, const QString &className, const QString &key);
// Fails the decoding because `className` refers back to itself through its filters.
void failLoop(VKKeyedUnarchiver &coder, const QString &className);

} // namespace VKFilterGraphCoding
