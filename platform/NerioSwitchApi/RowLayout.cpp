#include "NerioSwitchApi/RowLayout.h"

#include <algorithm>
#include <map>
#include <string>

namespace NerioSwitchApi {

RowLayout rowLayout(U32 words, std::vector<RowField> fields, Belmo::String name, RowLayout::Holds holds) {
    std::erase_if(fields, [](RowField const& field) { return field.width == 0; });
    std::ranges::sort(fields, {}, &RowField::first);
    std::map<Belmo::String, U32> uses;
    for (auto const& field : fields)
        ++uses[field.name];
    std::map<Belmo::String, U32> numbers;
    for (auto& field : fields) {
        if (uses[field.name] > 1) field.name += std::to_string(numbers[field.name]++);
    }
    return {.name = std::move(name), .words = words, .fields = std::move(fields), .holds = std::move(holds)};
}

}  // namespace NerioSwitchApi
