#include "filters/GPUImageHSBFilter.h"

namespace oxelo {

GPUImageHSBFilter::GPUImageHSBFilter() { reset(); }

void GPUImageHSBFilter::reset() {
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) matrix_[row][column] = row == column ? 1.0f : 0.0f;
  updateColorMatrix();
}

void GPUImageHSBFilter::adjustBrightness(float factor) {
  // The inner matrix times diag(factor, factor, factor, 1): columns scaled.
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 3; ++column) matrix_[row][column] *= factor;
  updateColorMatrix();
}

void GPUImageHSBFilter::updateColorMatrix() {
  // The inner matrix is kept by rows; its transpose, given by columns, is
  // the same sixteen numbers in row order.
  Matrix columns;
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) columns[row * 4 + column] = matrix_[row][column];
  setColorMatrix(columns);
}

}  // namespace oxelo
