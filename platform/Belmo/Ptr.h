#pragma once

#include "Belmo/Node.h"
