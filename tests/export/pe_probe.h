// A Windows image with one function and no runtime, which the symbolizer tests build natively
// with each compiler at hand: its entry point is that function, so a test finds its address in
// the image's headers.
#pragma once

constexpr int kPeProbeLine = 12;  // the line of probe::Widget::Twice's definition
