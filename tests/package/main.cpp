#include <kit/format.h>
#include <kit/numeric_string_compare.h>

int main() {
    return kit::NumericStringCompare{}(kit::format("%d", 2), "10") ? 0 : 1;
}
