#pragma once

/** Marks what libNerioPlatform offers; everything else of it stays hidden. */
#define BELMO_EXPORT __attribute__((visibility("default")))
