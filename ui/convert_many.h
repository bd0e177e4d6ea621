#pragma once
// File > Convert Many: many reports converted as a batch (run/batch.h).
