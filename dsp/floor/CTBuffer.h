#pragma once

#include "dsp/MeridexErrors.h"
#include "dsp/floor/AlignedMemory.h"
#include "dsp/floor/VectorDispatch.h"

#include <cstring>
#include <type_traits>

// A two-dimensional array of rows x columns for the frame-based engines: each
// row is its own aligned, zero-filled allocation, so that vector routines can
// run over a row. The row pointers may be reordered (rotateRows, or directly
// through getRowPointers) to keep a ring of rows without copying; a second
// array remembers the rows in allocation order for freeing.
//
// Owned by the engine that holds it; init allocates and is called at creation
// or in the engine's init, never from a processing call. The rest never
// allocates.
namespace meridex
{
template <typename T>
class CTBuffer
{
    static_assert (std::is_trivially_copyable<T>::value, "rows are raw memory, zero-filled");

public:
    CTBuffer() noexcept { selectTier (-1); }

    // Allocates at once; check getErrorCode().
    CTBuffer (int rows, int columns) noexcept : CTBuffer() { errorCode = init (rows, columns); }

    virtual ~CTBuffer() { release(); }

    CTBuffer (const CTBuffer&) = delete;
    CTBuffer& operator= (const CTBuffer&) = delete;

    // Frees what is held and allocates rows x columns zeros. Returns
    // kNoError, kBadArgument (a negative size) or kMemoryError, in which case
    // the buffer is left empty.
    [[nodiscard]] int init (int rows, int columns) noexcept
    {
        release();
        if (rows < 0 || columns < 0)
            return errorCode = kBadArgument;
        if (rows == 0)
            return errorCode = kNoError;

        rowPointers = allocateArray<T*> (rows);
        ownedRows = allocateArray<T*> (rows);
        if (rowPointers == nullptr || ownedRows == nullptr)
        {
            release();
            return errorCode = kMemoryError;
        }
        rowCount = rows;
        columnCount = columns;
        for (int r = 0; r < rows && columns > 0; ++r)
        {
            ownedRows[r] = allocateArray<T> (columns);
            if (ownedRows[r] == nullptr)
            {
                release();
                return errorCode = kMemoryError;
            }
            rowPointers[r] = ownedRows[r];
        }
        return errorCode = kNoError;
    }

    void release() noexcept
    {
        if (ownedRows != nullptr)
            for (int r = 0; r < rowCount; ++r)
                freeArray (&ownedRows[r]);
        freeArray (&ownedRows);
        freeArray (&rowPointers);
        rowCount = 0;
        columnCount = 0;
    }

    // Zeros every row.
    void clear() noexcept
    {
        for (int r = 0; r < rowCount && columnCount > 0; ++r)
            std::memset (static_cast<void*> (rowPointers[r]), 0, sizeof (T) * static_cast<size_t> (columnCount));
    }

    // Moves every row one place down and the last row to the front: in a
    // history ring the oldest row becomes row 0, ready to be overwritten.
    void rotateRows() noexcept
    {
        if (rowCount < 2)
            return;
        T* const last = rowPointers[rowCount - 1];
        for (int r = rowCount - 1; r > 0; --r)
            rowPointers[r] = rowPointers[r - 1];
        rowPointers[0] = last;
    }

    // Puts the rows back in allocation order.
    void resetRowOrder() noexcept
    {
        for (int r = 0; r < rowCount; ++r)
            rowPointers[r] = ownedRows[r];
    }

    T* operator[] (int row) noexcept { return rowPointers[row]; }
    const T* operator[] (int row) const noexcept { return rowPointers[row]; }
    T** getRowPointers() noexcept { return rowPointers; }
    int getRowCount() const noexcept { return rowCount; }
    int getColumnCount() const noexcept { return columnCount; }
    int getErrorCode() const noexcept { return errorCode; }

private:
    int rowCount = 0;
    int columnCount = 0;
    T** rowPointers = nullptr; // in use, may be reordered
    T** ownedRows = nullptr;   // allocation order, for freeing
    int errorCode = kNoError;
};
} // namespace meridex
