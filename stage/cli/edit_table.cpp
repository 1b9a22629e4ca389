#include "stage/cli/edit_table.h"

#include "stage/cli/text_table.h"
#include "stage/show/edit_list.h"
#include "tavo_core/edit_text.h"

std::string MakeEditTable(const CL::SongLog& songLog, const TL::BarPositions& positions) {
    const auto edits = stage::ListEdits(songLog);
    if (edits.empty()) return "";
    TextTable table({{"  edit"}, {"place"}, {"value"}});
    for (const stage::ListedEdit& listed : edits)
        table.AddRow({"  " + CL::DescribeKind(*listed.edit), CL::DescribePlace(*listed.edit, positions),
                      CL::DescribeValue(*listed.edit)});
    return table.AsText();
}
