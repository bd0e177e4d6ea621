#include "run/batch.h"
