// The float element type with four SSE2 lanes, real and imaginary parts apart: for the lengths that
// the wide engine leaves out.
#pragma once

#include "qel/math/fft/generic/element.hpp"
#include "qel/math/simd/lanes.hpp"

namespace qel::fft {

struct SseElement : Element<float> {
    typedef float Float2 __attribute__((vector_size(8)));
    using Float4 = simd::Floats<4>;
    static constexpr int kLanes = 4;

    using Element::load, Element::load_back;
    using Element::scatter, Element::store, Element::store_back;

    static Complex<Float4> parts(Float4 a, Float4 b) {
        const auto [r, i] = simd::unzipped<4>(a, b);
        return {r, i};
    }
    static Complex<Float4> load(Lanes<4>, const Point* at) {
        return parts(simd::load<4>(&at->r), simd::load<4>(&at[2].r));
    }
    static Complex<Float4> gather(Lanes<4>, const Point* at, int32_t step) {
        Float2 points[4];
        for (Float2& point : points) {
            std::memcpy(&point, at, sizeof point);
            at += step;
        }
        return parts(__builtin_shufflevector(points[0], points[1], 0, 1, 2, 3),
                     __builtin_shufflevector(points[2], points[3], 0, 1, 2, 3));
    }
    static Complex<Float4> spread(Lanes<4>, const Point* at) {
        return {Float4{} + at->r, Float4{} + at->i};
    }
    static Complex<Float4> load_back(Lanes<4> lanes, const Point* at) {
        const auto a = load(lanes, at - 3);
        return {simd::reversed<4>(a.r), simd::reversed<4>(a.i)};
    }
    static void scatter(Lanes<4>, Point* at, int32_t step, Complex<Float4> a) {
        const auto [low, high] = simd::zipped<4>(a.r, a.i);
        const Float2 points[] = {
            __builtin_shufflevector(low, low, 0, 1), __builtin_shufflevector(low, low, 2, 3),
            __builtin_shufflevector(high, high, 0, 1), __builtin_shufflevector(high, high, 2, 3)};
        for (const Float2& point : points) {
            std::memcpy(at, &point, sizeof point);
            at += step;
        }
    }
    static void store(Lanes<4>, Point* at, Complex<Float4> a) {
        const auto [low, high] = simd::zipped<4>(a.r, a.i);
        simd::store(&at->r, low);
        simd::store(&at[2].r, high);
    }
    static void store_back(Lanes<4> lanes, Point* at, Complex<Float4> a) {
        store(lanes, at - 3, {simd::reversed<4>(a.r), simd::reversed<4>(a.i)});
    }
};

}  // namespace qel::fft
