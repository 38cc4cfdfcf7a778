// vkreportd: the report server that crash and bug reporters post to.
//
// Layout of what it stores, for the tools and tests that read it (kept stable):
//
//   <dir>/<yyyyMMdd-HHmmss>-<n>/     one folder per report; UTC time of arrival, n = 1, 2, ...
//       <FIELD>.txt                  each plain field, its bytes exactly as sent
//       <file name>                  each attachment under the safe base name of its file name
//       <name>/                      for an attachment <name>.zip: its entries, unpacked flat
//       _parts.tsv                   one line per part, in the order they came, cells split
//                                    by tabs:
//                                      field    name  stored file  bytes
//                                      file     name  stored file  bytes  name as sent
//                                      archive  name  folder/      entries
//
// Names are reduced to safe base names (the last path component; letters, digits and
// " ._-+,()@", anything else "_"; no leading dot); a name already taken in the folder, compared
// without case, gets "-2", "-3", ... before its extension. A report is written into a hidden
// ".incoming-*" folder and renamed into place when complete, so a folder that is there is whole.
// Refused uploads (400 malformed, 413 too large) leave nothing. A zip that cannot be read is
// kept packed and noted in the log line.
#include "VKReportServerTool.h"

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<VKReportServerTool>(argc, argv);
}
