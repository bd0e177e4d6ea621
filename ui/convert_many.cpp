#include "ui/convert_many.h"
