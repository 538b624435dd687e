// The float32 transforms beside FFTW's.
#pragma once

#include <cstddef>

#include "benchmarks/peers/measure.hpp"

enum class FftKind { kC2c, kR2c, kC2r };

/// Checks one transform of n points by both libraries, then times them.
void compare_transform(FftKind kind, size_t n);

/// Two transforms of n real points forward and one back by FFTW: what the fastest canceller of this
/// kind would have to spend with that library.
Work fftw_transforms_of_a_frame(size_t n);
