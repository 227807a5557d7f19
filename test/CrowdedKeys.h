#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <map>
#include <vector>

#include "Belmo/Types.h"

/*
 * Keys that crowd in few rows, so that placing one moves others, and some find no place. A key's rows follow
 * from its bits by exclusive or, so that numbers whose bits leave rows alone are found by elimination,
 * however many rows there are and however long the keys.
 */
namespace NerioTest {

/** The row, in a hash table, of the key that is made of a number. */
using RowOfNumber = std::function<U32(U64 number, U8 table)>;

/** Up to `count` independent numbers of that many bits that change the row in none of these tables. */
inline std::vector<U64> rowKeepers(RowOfNumber const& rowOf, U32 bits, std::initializer_list<U8> tables,
                                   std::size_t count) {
    auto const rowsOf = [&](U64 number) {
        U64 rows = 0;
        for (U8 const table : tables)
            rows = rows << 16 | (rowOf(number, table) ^ rowOf(0, table));
        return rows;
    };
    std::map<U64, std::pair<U64, U64>, std::greater<>> pivots;  // by top bit: rows and the number
    std::vector<U64> keepers;
    for (U32 bit = 0; bit < bits && keepers.size() < count; ++bit) {
        U64 number = U64{1} << bit;
        U64 rows = rowsOf(number);
        for (auto const& [top, pivot] : pivots) {
            if ((rows & top) == 0) continue;
            rows ^= pivot.first;
            number ^= pivot.second;
        }
        if (rows == 0) {
            keepers.push_back(number);
        } else {
            U64 top = U64{1} << 63;
            while ((rows & top) == 0)
                top >>= 1;
            pivots[top] = {rows, number};
        }
    }
    return keepers;
}

/** All sums of these numbers by exclusive or. */
inline std::vector<U64> spanOf(std::vector<U64> const& numbers) {
    std::vector<U64> all{0};
    for (U64 const number : numbers) {
        for (std::size_t i = all.size(); i > 0; --i)
            all.push_back(all[i - 1] ^ number);
    }
    return all;
}

/** 16 numbers that share four rows in each of three or four tables. */
inline std::vector<U64> crowdedNumbers(RowOfNumber const& rowOf, U32 bits, U32 tables) {
    auto keepers = rowKeepers(rowOf, bits, {0, 1}, 2);
    auto const others = tables == 3 ? rowKeepers(rowOf, bits, {2}, 2) : rowKeepers(rowOf, bits, {2, 3}, 2);
    keepers.insert(keepers.end(), others.begin(), others.end());
    return spanOf(keepers);
}

}  // namespace NerioTest
