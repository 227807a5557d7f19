#pragma once

#include "chip/IndirectMemory.h"

/** A memory of two ways whose length is no power of two, so that control words reach beyond its end. */
inline Chip::MemoryDescription aclMemory() {
    return {.name = "acl[0]",
            .dataRegisters = {"ingress/processor_acl[0]/hash_data0", "ingress/processor_acl[0]/hash_data1",
                              "ingress/processor_acl[0]/hash_data2", "ingress/processor_acl[0]/hash_data3"},
            .controlRegister = "ingress/processor_acl[0]/hash_ctl",
            .row = {0, 11},
            .writeStrobe = {18, 1},
            .rowsPerWay = 1500,
            .way = {11, 1},
            .ways = 2};
}

/** One of several memories behind the control register of a layer 3 processor. */
inline Chip::MemoryDescription l3Memory(char const* name, U32 selected, U32 rows, U8 rowBits) {
    return {.name = name,
            .dataRegisters = {"ingress/processor_l3[0]/hash_data0", "ingress/processor_l3[0]/hash_data1"},
            .controlRegister = "ingress/processor_l3[0]/hash_ctl",
            .row = {0, rowBits},
            .writeStrobe = {17, 1},
            .rowsPerWay = rows,
            .readStrobe = {16, 1},
            .select = {18, 4},
            .selected = selected};
}

inline Chip::MemoryDescription l3LagMemory() {
    return l3Memory("l3Lag[0]", 9, 56, 6);
}

inline Chip::MemoryDescription l3FloodMemory() {
    return l3Memory("l3Flood[0]", 10, 128, 8);
}
