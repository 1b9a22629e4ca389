#include <kit/format.h>
#include <kit/numeric_string_compare.h>
#include <player_core/loop_event_list.h>

int main() {
    LoopEvent vamp;
    vamp.end = 960;
    LoopEventList loops;
    const bool isInserted = loops.InsertLoopEvent(vamp);
    const bool isOrdered = kit::NumericStringCompare{}(kit::format("%u", 2U), "10");
    return isInserted && isOrdered ? 0 : 1;
}
