#pragma once

/** Marks what libNerioSwitchTable offers; everything else of it stays hidden. */
#define NERIO_SWITCH_TABLE_EXPORT __attribute__((visibility("default")))
