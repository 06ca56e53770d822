#!/usr/bin/python3
"""Writes small ONNX exports of the detection network's interface whose outputs are known exactly.

    make_test_onnx.py VARIANT OUTPUT.onnx

Inputs "current" and "previous", float 1x3x384x384. Per scale s (cell size k = 8, 16, 32):
  heatmap{s}     the cell maxima of current's three planes and of previous's first plane (4 ch)
  regression{s}  the heatmap repeated 8 times, times 16, minus 8 (32 ch, -8..8)
  tracking{s}    the cell maxima of current's and previous's first planes, times 64, minus 32
Only maxima, powers of two and exact subtractions: every value is the same on any machine.
Variants that do not fit the runtime's tensors, for the model tool's checks:
  good, renamed-input (second input "images"), wrong-shape (heatmap1 of 48x48 cells),
  missing-output (no tracking2).
"""
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper


def build(variant):
    nodes, inits, outputs = [], [], []
    size = 384
    second = "images" if variant == "renamed-input" else "previous"
    inputs = [helper.make_tensor_value_info(n, TensorProto.FLOAT, [1, 3, size, size])
              for n in ("current", second)]

    def const(name, values, dtype=np.float32):
        inits.append(numpy_helper.from_array(np.array(values, dtype=dtype), name))
        return name

    const("c16", [16.0]), const("c8", [8.0]), const("c64", [64.0]), const("c32", [32.0])
    const("s0", [0], np.int64), const("s1", [1], np.int64), const("axis1", [1], np.int64)

    def node(op, ins, out, **attrs):
        nodes.append(helper.make_node(op, ins, [out], **attrs))
        return out

    for s in range(3):
        k = 8 << s
        if variant == "wrong-shape" and s == 1:
            k = 8
        grid = size // k
        pc = node("MaxPool", ["current"], f"pc{s}", kernel_shape=[k, k], strides=[k, k])
        pp = node("MaxPool", [second], f"pp{s}", kernel_shape=[k, k], strides=[k, k])
        pcy = node("Slice", [pc, "s0", "s1", "axis1"], f"pcy{s}")
        ppy = node("Slice", [pp, "s0", "s1", "axis1"], f"ppy{s}")
        heat = node("Concat", [pc, ppy], f"heatmap{s}", axis=1)
        rep = node("Concat", [heat] * 8, f"rep{s}", axis=1)
        reg = node("Sub", [node("Mul", [rep, "c16"], f"reg16_{s}"), "c8"], f"regression{s}")
        pair = node("Concat", [pcy, ppy], f"pair{s}", axis=1)
        trk = node("Sub", [node("Mul", [pair, "c64"], f"trk64_{s}"), "c32"], f"tracking{s}")
        for name, channels in ((heat, 4), (reg, 32), (trk, 2)):
            if variant == "missing-output" and name == "tracking2":
                continue
            outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT,
                                                         [1, channels, grid, grid]))
    graph = helper.make_graph(nodes, "mirvane-test-" + variant, inputs, outputs, inits)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)],
                              producer_name="mirvane tests")
    onnx.checker.check_model(model)
    return model


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in (
            "good", "renamed-input", "wrong-shape", "missing-output"):
        sys.stderr.write(__doc__)
        return 2
    onnx.save(build(sys.argv[1]), sys.argv[2])
    return 0


if __name__ == "__main__":
    sys.exit(main())
