/*
 * zu_numbers.cpp - small numeric helpers over 32-bit float arrays: range,
 * heap sort with companion arrays, and the print width of a value.
 */
#include "zu_internal.h"

#include <cmath>
#include <utility>

namespace {

/* Sorts key ascending by heap sort; companions (null allowed) follow. */
void heapSort(int count, float *key, float *a, float *b)
{
    auto swapAt = [&](int i, int j) {
        std::swap(key[i], key[j]);
        if (a)
            std::swap(a[i], a[j]);
        if (b)
            std::swap(b[i], b[j]);
    };
    auto siftDown = [&](int root, int end) {
        for (int child; (child = 2 * root + 1) < end; root = child) {
            if (child + 1 < end && key[child + 1] > key[child])
                ++child;
            if (!(key[child] > key[root]))
                return;
            swapAt(root, child);
        }
    };
    for (int i = count / 2 - 1; i >= 0; --i)
        siftDown(i, count);
    for (int end = count - 1; end > 0; --end) {
        swapAt(0, end);
        siftDown(0, end);
    }
}

} // namespace

extern "C" {

void ZU_floatRange(int count, const float *values, float *minimum, float *maximum)
{
    if (!values || !minimum || !maximum)
        return;
    for (int i = 0; i < count; ++i) {
        if (values[i] < *minimum)
            *minimum = values[i];
        if (values[i] > *maximum)
            *maximum = values[i];
    }
}

void ZU_sort2(int count, float *key, float *other)
{
    if (count >= 2 && key)
        heapSort(count, key, other, nullptr);
}

void ZU_sort3(int count, float *key, float *other1, float *other2)
{
    if (count >= 2 && key)
        heapSort(count, key, other1, other2);
}

int ZU_fieldWidth(float value, int decimals)
{
    if (decimals < 0)
        decimals = 0;
    double magnitude = std::fabs(static_cast<double>(value));
    int digits = 1;
    if (magnitude >= 1 && magnitude <= 10000) {
        double scale = std::pow(10.0, decimals);
        double rounded = std::round(magnitude * scale) / scale;
        digits = 1 + static_cast<int>(std::log10(rounded));
    }
    int width = digits;
    if (value < 0)
        ++width;
    if (decimals)
        width += decimals + 1;
    return width;
}

} // extern "C"
