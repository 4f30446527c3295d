#!/usr/bin/python3
"""Writes the tiny, deterministic ONNX models that the speech tests and benchmarks run.

Usage: make_test_models.py OUTPUT_DIR

Run it with Debian's /usr/bin/python3 and python3-onnx. Every folder under OUTPUT_DIR is a
model folder as the program loads it; a file is rewritten only when its bytes change, so a
rerun is quick and leaves time stamps alone.

The transducer models do not listen. Their encoder writes the number of each output frame
into channel 0 of that frame, the decoder counts its own runs in every element of its
state, and the joint looks up its answer in a table by that count, once the frame number
has reached FIRST_TOKEN_FRAME (before that it answers WAITING_ROW). So the greedy decoder
walks a path that is known in advance, and any change in when the decoder runs or how far
a duration moves the frame shows up as a different path:

    frame 0, 2, 4, 6, 8   blank, duration 2 (the decoder runs once, at frame 0)
    frame 10              "▁hel" (duration 0), "lo" (duration 1)
    frame 11              blank, duration 0: one frame on
    frame 12              blank, duration 3
    frame 15              "▁world", duration 2
    frame 17              "!", duration 4
    frame 21              "▁la" ten times with duration 0, then one frame on
    frame 22              blank, duration 4
    frame 26              "▁end", duration 4
    then                  blank, duration 1, to the end

Folders:
  parakeet-split      encoder.onnx, decoder.onnx, joint.onnx, tokenizer.json
  parakeet-fused      encoder-model.onnx, decoder_joint-model.onnx, vocab.txt (the layout
                      in which the model is commonly published for ONNX Runtime)
  parakeet-public     encoder.int8.onnx, decoder.int8.onnx, joiner.int8.onnx, tokens.txt: the
                      public three-file layout of quantised exports, with their own tensor
                      names, a channel-major encoder and decoder output, and one joint output
                      of token and duration logits together
  parakeet-unshaped   as split, but the decoder's state inputs declare no shape
  parakeet-failing    as split, but the encoder fails on a chunk of digital silence
  parakeet-slow       as split, but the encoder does a fixed amount of matrix work
  ctc-char            a precise word timing bundle: raw audio of any length in, logits
                      out, a character vocabulary ({"vocab": ...}) with a word separator
  ctc-bpe-padded      the same model with an attention mask and lengths, fed a fixed 10 s
                      (shorter chunks are padded), and a BPE tokenizer.json with merges
  ctc-rank4           as ctc-char, but its logits come out with one dimension too many
  ctc-features        128-bin log-mel features in (10 s), log probabilities out, every
                      second frame, a vocabulary that is a list of tokens
"""

import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

OPSET = 17
IR_VERSION = 8
VOCAB_SIZE = 8193  # text tokens and the blank
BLANK = 8192
DURATIONS = [0, 1, 2, 3, 4]
MEL_BINS = 128
SUBSAMPLING = 8
INT64_MAX = 2**63 - 1

FIRST_TOKEN_FRAME = 10
WAITING_ROW = (BLANK, 2)
# (token, duration) by the number of decoder runs so far; the last row repeats.
PATH_ROWS = [
    WAITING_ROW,
    (5, 0),  # ▁hel
    (6, 1),  # lo
    (BLANK, 0),
    (BLANK, 3),
    (7, 2),  # ▁world
    (8, 4),  # !
] + [(9, 0)] * 10 + [  # ▁la
    (BLANK, 4),
    (10, 4),  # ▁end
    (BLANK, 1),
]

PIECES = {
    "<unk>": 0,
    "<pad>": 1,
    "▁the": 2,
    "▁a": 3,
    "s": 4,
    "▁hel": 5,
    "lo": 6,
    "▁world": 7,
    "!": 8,
    "▁la": 9,
    "▁end": 10,
}

SPLIT_HIDDEN = 8  # encoder width = decoder state width, as the split layout has it
SPLIT_LAYERS = 2
FUSED_ENCODER_WIDTH = 12  # the fused layout's encoder is wider than its decoder state
FUSED_STATE_WIDTH = 8
FUSED_LAYERS = 2
PUBLIC_ENCODER_WIDTH = 10
SLOW_ENCODER_MATMULS = 24


def const(name, array):
    return helper.make_node("Constant", [], [name], value=numpy_helper.from_array(array, name))


def int64s(*values):
    return np.array(values, dtype=np.int64)


def save(model, path, check=True):
    # The checker insists on a shape for every graph input; ONNX Runtime takes an input
    # without one, as some exported models have it.
    if check:
        onnx.checker.check_model(model)
    write_if_changed(path, model.SerializeToString())


def write_if_changed(path, data):
    if isinstance(data, str):
        data = data.encode("utf-8")
    if os.path.exists(path):
        with open(path, "rb") as existing:
            if existing.read() == data:
                return
    temporary = path + ".tmp"
    with open(temporary, "wb") as out:
        out.write(data)
    os.replace(temporary, path)


def make_model(nodes, name, inputs, outputs, initializers=()):
    graph = helper.make_graph(nodes, name, inputs, outputs, initializer=list(initializers))
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                              producer_name="orvelle-test-models")
    model.ir_version = IR_VERSION
    return model


def frame_numbers(nodes, frames_input_shape, time_axis, prefix):
    """Nodes that give `prefix_frames`: 0, 1, ... ceil(T / 8) - 1 as float, shape [T']."""
    nodes += [
        helper.make_node("Shape", [frames_input_shape], [prefix + "_shape"]),
        const(prefix + "_axis", int64s(time_axis)),
        helper.make_node("Gather", [prefix + "_shape", prefix + "_axis"], [prefix + "_t"]),
        const(prefix + "_seven", int64s(SUBSAMPLING - 1)),
        const(prefix + "_eight", int64s(SUBSAMPLING)),
        helper.make_node("Add", [prefix + "_t", prefix + "_seven"], [prefix + "_t7"]),
        helper.make_node("Div", [prefix + "_t7", prefix + "_eight"], [prefix + "_count"]),
        const(prefix + "_zero", np.array(0, dtype=np.int64)),
        const(prefix + "_one", np.array(1, dtype=np.int64)),
        helper.make_node("Squeeze", [prefix + "_count"], [prefix + "_count0"]),
        helper.make_node("Range", [prefix + "_zero", prefix + "_count0", prefix + "_one"],
                         [prefix + "_range"]),
        helper.make_node("Cast", [prefix + "_range"], [prefix + "_frames"], to=TensorProto.FLOAT),
    ]


def failing_guard(nodes, features, hidden_in, hidden_out):
    """Adds a data-dependent failure: a chunk whose features are all zero (digital silence,
    after normalisation) makes a Gather index run out of range."""
    nodes += [
        helper.make_node("Abs", [features], ["guard_abs"]),
        helper.make_node("ReduceSum", ["guard_abs"], ["guard_sum"], keepdims=0),
        const("guard_zero", np.array(0, dtype=np.float32)),
        helper.make_node("Equal", ["guard_sum", "guard_zero"], ["guard_silent"]),
        helper.make_node("Cast", ["guard_silent"], ["guard_flag"], to=TensorProto.INT64),
        const("guard_far", np.array(1000, dtype=np.int64)),
        helper.make_node("Mul", ["guard_flag", "guard_far"], ["guard_index"]),
        const("guard_table", np.zeros([1], dtype=np.float32)),
        helper.make_node("Gather", ["guard_table", "guard_index"], ["guard_value"]),
        helper.make_node("Add", [hidden_in, "guard_value"], [hidden_out]),
    ]


def slow_work(nodes, initializers, features, hidden_in, hidden_out, matmuls):
    """Adds `matmuls` products of the [1, T, 128] features with 128 x 128 matrices, whose
    result joins the output multiplied by zero: a fixed amount of work per mel frame."""
    rng = np.random.default_rng(7)
    current = features
    for i in range(matmuls):
        weight = (rng.standard_normal([MEL_BINS, MEL_BINS]) / np.sqrt(MEL_BINS)).astype(np.float32)
        initializers.append(numpy_helper.from_array(weight, "slow_w%d" % i))
        nodes += [
            helper.make_node("MatMul", [current, "slow_w%d" % i], ["slow_m%d" % i]),
            helper.make_node("Tanh", ["slow_m%d" % i], ["slow_x%d" % i]),
        ]
        current = "slow_x%d" % i
    nodes += [
        helper.make_node("ReduceSum", [current], ["slow_sum"], keepdims=0),
        const("slow_nothing", np.array(0, dtype=np.float32)),
        helper.make_node("Mul", ["slow_sum", "slow_nothing"], ["slow_zero"]),
        helper.make_node("Add", [hidden_in, "slow_zero"], [hidden_out]),
    ]


def split_encoder(variant="plain"):
    """input_features [1, T, 128], attention_mask [1, T] int32 ->
    encoder_hidden [1, T', H] (frame number in channel 0), encoder_mask [1, T'] int32."""
    nodes = []
    initializers = []
    frame_numbers(nodes, "input_features", 1, "enc")
    channel = np.zeros([1, 1, SPLIT_HIDDEN], dtype=np.float32)
    channel[0, 0, 0] = 1
    nodes += [
        const("enc_axes", int64s(0, 2)),
        helper.make_node("Unsqueeze", ["enc_frames", "enc_axes"], ["enc_column"]),
        const("enc_channel", channel),
        helper.make_node("Mul", ["enc_column", "enc_channel"], ["enc_hidden"]),
        const("mask_starts", int64s(0)),
        const("mask_ends", int64s(INT64_MAX)),
        const("mask_axes", int64s(1)),
        const("mask_steps", int64s(SUBSAMPLING)),
        helper.make_node("Slice", ["attention_mask", "mask_starts", "mask_ends", "mask_axes",
                                   "mask_steps"], ["encoder_mask"]),
    ]
    if variant == "failing":
        failing_guard(nodes, "input_features", "enc_hidden", "encoder_hidden")
    elif variant == "slow":
        slow_work(nodes, initializers, "input_features", "enc_hidden", "encoder_hidden",
                  SLOW_ENCODER_MATMULS)
    else:
        nodes.append(helper.make_node("Identity", ["enc_hidden"], ["encoder_hidden"]))
    return make_model(
        nodes, "encoder",
        [helper.make_tensor_value_info("input_features", TensorProto.FLOAT, [1, "T", MEL_BINS]),
         helper.make_tensor_value_info("attention_mask", TensorProto.INT32, [1, "T"])],
        [helper.make_tensor_value_info("encoder_hidden", TensorProto.FLOAT,
                                       [1, "T_enc", SPLIT_HIDDEN]),
         helper.make_tensor_value_info("encoder_mask", TensorProto.INT32, [1, "T_enc"])],
        initializers)


def split_decoder(shaped=True):
    """input_ids [1, 1] int32, hidden, cell [L, 1, S] -> decoder_hidden [1, 1, S],
    next_hidden = hidden + 1 (so every element counts the runs), next_cell = cell + id."""
    state_shape = [SPLIT_LAYERS, 1, SPLIT_HIDDEN] if shaped else None
    nodes = [
        const("one", np.array(1, dtype=np.float32)),
        helper.make_node("Add", ["hidden", "one"], ["next_hidden"]),
        helper.make_node("Cast", ["input_ids"], ["id_float"], to=TensorProto.FLOAT),
        const("id_shape", int64s(1, 1, 1)),
        helper.make_node("Reshape", ["id_float", "id_shape"], ["id_column"]),
        helper.make_node("Add", ["cell", "id_column"], ["next_cell"]),
        const("last_start", int64s(-1)),
        const("last_end", int64s(INT64_MAX)),
        const("last_axis", int64s(0)),
        helper.make_node("Slice", ["next_hidden", "last_start", "last_end", "last_axis"],
                         ["last_layer"]),
        const("out_shape", int64s(1, 1, -1)),
        helper.make_node("Reshape", ["last_layer", "out_shape"], ["decoder_hidden"]),
    ]
    return make_model(
        nodes, "decoder",
        [helper.make_tensor_value_info("input_ids", TensorProto.INT32, [1, 1]),
         helper.make_tensor_value_info("hidden", TensorProto.FLOAT, state_shape),
         helper.make_tensor_value_info("cell", TensorProto.FLOAT, state_shape)],
        [helper.make_tensor_value_info("decoder_hidden", TensorProto.FLOAT, [1, 1, "S"]),
         helper.make_tensor_value_info("next_hidden", TensorProto.FLOAT, ["L", 1, "S"]),
         helper.make_tensor_value_info("next_cell", TensorProto.FLOAT, ["L", 1, "S"])])


def path_lookup(nodes, frame_value, count_value):
    """Nodes from the scalar float frame number and run count to `token` and `duration`
    (int64, shape [1]) by the path table."""
    tokens = np.array([row[0] for row in PATH_ROWS], dtype=np.int64)
    durations = np.array([DURATIONS.index(row[1]) for row in PATH_ROWS], dtype=np.int64)
    nodes += [
        const("first_frame", np.array(FIRST_TOKEN_FRAME, dtype=np.float32)),
        helper.make_node("GreaterOrEqual", [frame_value, "first_frame"], ["started"]),
        helper.make_node("Cast", [count_value], ["count"], to=TensorProto.INT64),
        const("waiting", np.array(0, dtype=np.int64)),
        helper.make_node("Where", ["started", "count", "waiting"], ["row_unclamped"]),
        const("last_row", np.array(len(PATH_ROWS) - 1, dtype=np.int64)),
        helper.make_node("Min", ["row_unclamped", "last_row"], ["row"]),
        const("row_axes", int64s(0)),
        helper.make_node("Unsqueeze", ["row", "row_axes"], ["row1"]),
        const("token_table", tokens),
        const("duration_table", durations),
        helper.make_node("Gather", ["token_table", "row1"], ["token"]),
        helper.make_node("Gather", ["duration_table", "row1"], ["duration"]),
        const("one_hot_values", np.array([0, 1], dtype=np.float32)),
        const("vocab_depth", np.array(VOCAB_SIZE, dtype=np.int64)),
        const("duration_depth", np.array(len(DURATIONS), dtype=np.int64)),
        helper.make_node("OneHot", ["token", "vocab_depth", "one_hot_values"], ["token_hot"]),
        helper.make_node("OneHot", ["duration", "duration_depth", "one_hot_values"],
                         ["duration_hot"]),
    ]


def first_element(nodes, source, target):
    nodes += [
        const(target + "_flat_shape", int64s(-1)),
        helper.make_node("Reshape", [source, target + "_flat_shape"], [target + "_flat"]),
        const(target + "_index", np.array(0, dtype=np.int64)),
        helper.make_node("Gather", [target + "_flat", target + "_index"], [target]),
    ]


def split_joint(shaped=True):
    """encoder_frame [1, H], decoder_state [1, S] -> token_logits [1, 8193],
    duration_logits [1, 5]: one-hot rows of the path table."""
    nodes = []
    first_element(nodes, "encoder_frame", "frame_value")
    first_element(nodes, "decoder_state", "count_value")
    path_lookup(nodes, "frame_value", "count_value")
    nodes += [
        helper.make_node("Identity", ["token_hot"], ["token_logits"]),
        helper.make_node("Identity", ["duration_hot"], ["duration_logits"]),
    ]
    return make_model(
        nodes, "joint",
        [helper.make_tensor_value_info("encoder_frame", TensorProto.FLOAT,
                                       [1, SPLIT_HIDDEN] if shaped else None),
         helper.make_tensor_value_info("decoder_state", TensorProto.FLOAT,
                                       [1, SPLIT_HIDDEN] if shaped else None)],
        [helper.make_tensor_value_info("token_logits", TensorProto.FLOAT, [1, VOCAB_SIZE]),
         helper.make_tensor_value_info("duration_logits", TensorProto.FLOAT,
                                       [1, len(DURATIONS)])])


def fused_encoder(width=FUSED_ENCODER_WIDTH):
    """audio_signal [1, 128, T], length [1] int64 -> outputs [1, H, T'] (frame number in
    channel 0), encoded_lengths [1] int64 = ceil(length / 8)."""
    nodes = []
    frame_numbers(nodes, "audio_signal", 2, "enc")
    channel = np.zeros([1, width, 1], dtype=np.float32)
    channel[0, 0, 0] = 1
    nodes += [
        const("enc_axes", int64s(0, 1)),
        helper.make_node("Unsqueeze", ["enc_frames", "enc_axes"], ["enc_row"]),
        const("enc_channel", channel),
        helper.make_node("Mul", ["enc_row", "enc_channel"], ["outputs"]),
        const("len_seven", int64s(SUBSAMPLING - 1)),
        const("len_eight", int64s(SUBSAMPLING)),
        helper.make_node("Add", ["length", "len_seven"], ["length7"]),
        helper.make_node("Div", ["length7", "len_eight"], ["encoded_lengths"]),
    ]
    return make_model(
        nodes, "encoder",
        [helper.make_tensor_value_info("audio_signal", TensorProto.FLOAT, ["B", MEL_BINS, "T"]),
         helper.make_tensor_value_info("length", TensorProto.INT64, ["B"])],
        [helper.make_tensor_value_info("outputs", TensorProto.FLOAT, ["B", width, "T_enc"]),
         helper.make_tensor_value_info("encoded_lengths", TensorProto.INT64, ["B"])])


def fused_decoder_joint():
    """encoder_outputs [1, H, 1], targets [1, 1] int32, target_length [1] int32,
    input_states_1/2 [L, 1, S] -> outputs [1, 1, 1, 8193 + 5], prednet_lengths,
    output_states_1 = states_1 + 1, output_states_2 = states_2 + target."""
    state = [FUSED_LAYERS, "B", FUSED_STATE_WIDTH]
    nodes = [
        const("one", np.array(1, dtype=np.float32)),
        helper.make_node("Add", ["input_states_1", "one"], ["output_states_1"]),
        helper.make_node("Cast", ["targets"], ["target_float"], to=TensorProto.FLOAT),
        const("target_shape", int64s(1, 1, 1)),
        helper.make_node("Reshape", ["target_float", "target_shape"], ["target_column"]),
        helper.make_node("Add", ["input_states_2", "target_column"], ["output_states_2"]),
        helper.make_node("Identity", ["target_length"], ["prednet_lengths"]),
    ]
    first_element(nodes, "encoder_outputs", "frame_value")
    first_element(nodes, "output_states_1", "count_value")
    path_lookup(nodes, "frame_value", "count_value")
    nodes += [
        helper.make_node("Concat", ["token_hot", "duration_hot"], ["logits"], axis=1),
        const("logits_shape", int64s(1, 1, 1, VOCAB_SIZE + len(DURATIONS))),
        helper.make_node("Reshape", ["logits", "logits_shape"], ["outputs"]),
    ]
    return make_model(
        nodes, "decoder_joint",
        [helper.make_tensor_value_info("encoder_outputs", TensorProto.FLOAT,
                                       ["B", FUSED_ENCODER_WIDTH, 1]),
         helper.make_tensor_value_info("targets", TensorProto.INT32, ["B", 1]),
         helper.make_tensor_value_info("target_length", TensorProto.INT32, ["B"]),
         helper.make_tensor_value_info("input_states_1", TensorProto.FLOAT, state),
         helper.make_tensor_value_info("input_states_2", TensorProto.FLOAT, state)],
        [helper.make_tensor_value_info("outputs", TensorProto.FLOAT,
                                       ["B", 1, 1, VOCAB_SIZE + len(DURATIONS)]),
         helper.make_tensor_value_info("prednet_lengths", TensorProto.INT32, ["B"]),
         helper.make_tensor_value_info("output_states_1", TensorProto.FLOAT, state),
         helper.make_tensor_value_info("output_states_2", TensorProto.FLOAT, state)])


def public_decoder():
    """targets [1, 1] int32, target_length [1] int32, states.1 and onnx::Slice_3 [L, 1, S]
    -> outputs [1, S, 1] (channel-major), prednet_lengths, states = states.1 + 1, and "162" =
    onnx::Slice_3 + target: the names of a common export script."""
    state = [SPLIT_LAYERS, "B", SPLIT_HIDDEN]
    nodes = [
        const("one", np.array(1, dtype=np.float32)),
        helper.make_node("Add", ["states.1", "one"], ["states"]),
        helper.make_node("Cast", ["targets"], ["target_float"], to=TensorProto.FLOAT),
        const("target_shape", int64s(1, 1, 1)),
        helper.make_node("Reshape", ["target_float", "target_shape"], ["target_column"]),
        helper.make_node("Add", ["onnx::Slice_3", "target_column"], ["162"]),
        helper.make_node("Identity", ["target_length"], ["prednet_lengths"]),
        const("last_start", int64s(-1)),
        const("last_end", int64s(INT64_MAX)),
        const("last_axis", int64s(0)),
        helper.make_node("Slice", ["states", "last_start", "last_end", "last_axis"],
                         ["last_layer"]),
        const("out_shape", int64s(1, -1, 1)),
        helper.make_node("Reshape", ["last_layer", "out_shape"], ["outputs"]),
    ]
    return make_model(
        nodes, "decoder",
        [helper.make_tensor_value_info("targets", TensorProto.INT32, ["B", 1]),
         helper.make_tensor_value_info("target_length", TensorProto.INT32, ["B"]),
         helper.make_tensor_value_info("states.1", TensorProto.FLOAT, state),
         helper.make_tensor_value_info("onnx::Slice_3", TensorProto.FLOAT, state)],
        [helper.make_tensor_value_info("outputs", TensorProto.FLOAT, ["B", SPLIT_HIDDEN, 1]),
         helper.make_tensor_value_info("prednet_lengths", TensorProto.INT32, ["B"]),
         helper.make_tensor_value_info("states", TensorProto.FLOAT, state),
         helper.make_tensor_value_info("162", TensorProto.FLOAT, state)])


def public_joiner():
    """encoder_output [1, H], decoder_output [1, S] -> logit [1, 8193 + 5]."""
    nodes = []
    first_element(nodes, "encoder_output", "frame_value")
    first_element(nodes, "decoder_output", "count_value")
    path_lookup(nodes, "frame_value", "count_value")
    nodes.append(helper.make_node("Concat", ["token_hot", "duration_hot"], ["logit"], axis=1))
    return make_model(
        nodes, "joiner",
        [helper.make_tensor_value_info("encoder_output", TensorProto.FLOAT,
                                       ["N", PUBLIC_ENCODER_WIDTH]),
         helper.make_tensor_value_info("decoder_output", TensorProto.FLOAT, ["N", SPLIT_HIDDEN])],
        [helper.make_tensor_value_info("logit", TensorProto.FLOAT,
                                       ["N", VOCAB_SIZE + len(DURATIONS)])])


def tokenizer_json():
    vocab = {piece: token for piece, token in PIECES.items()}
    document = {
        "version": "1.0",
        "added_tokens": [{"id": 0, "content": "<unk>", "special": True}],
        "model": {"type": "Unigram", "vocab": vocab},
    }
    return json.dumps(document, ensure_ascii=False, indent=2, sort_keys=True) + "\n"


def vocab_txt():
    lines = ["%s %d" % (piece, token) for piece, token in sorted(PIECES.items(),
                                                                  key=lambda item: item[1])]
    lines.append("<blk> %d" % BLANK)
    return "\n".join(lines) + "\n"


def split_folder(folder, encoder, shaped=True):
    os.makedirs(folder, exist_ok=True)
    save(encoder, os.path.join(folder, "encoder.onnx"))
    save(split_decoder(shaped), os.path.join(folder, "decoder.onnx"), check=shaped)
    save(split_joint(shaped), os.path.join(folder, "joint.onnx"), check=shaped)
    write_if_changed(os.path.join(folder, "tokenizer.json"), tokenizer_json())


# --- CTC timing models for precise word timing ------------------------------------------
#
# wav2vec2-shaped models that do listen, if only to loudness: each output frame scores the
# blank high where the audio is quiet and the letters high where it is loud, the word
# separator in between. Forced alignment over them puts words on the stretches of speech
# and the gaps between words in the pauses, which is enough to tell right times from wrong.

CTC_SAMPLE_RATE = 16000
WAV2VEC2_KERNELS = [10, 3, 3, 3, 3, 2, 2]
WAV2VEC2_STRIDES = [5, 2, 2, 2, 2, 2, 2]  # 320 samples, 20 ms, a frame
CTC_FIXED_SAMPLES = 160000  # the padded variant takes 10 s at a time
CTC_FEATURE_FRAMES = 1000  # the feature variant takes 10 s of 10 ms mel frames
CTC_FEATURE_SUBSAMPLING = 2
SPEECH_LOG_ENERGY = -9.0  # natural log of the mean power where speech begins
FEATURE_GAIN = 4.0  # normalised log-mel means are near -1 in pauses, above 0 in speech
PAUSE_FRAMES = 9  # 180 ms of output frames

CHAR_TOKENS = ["<pad>", "<s>", "</s>", "<unk>", "|", "E", "T", "A", "O", "N", "I", "H", "S",
               "R", "D", "L", "U", "M", "W", "C", "F", "G", "Y", "P", "B", "V", "K", "'", "X",
               "J", "Q", "Z"]
BPE_MERGES = ["\u2581 t", "t h", "\u2581t h", "h e", "\u2581th e", "i n", "e r", "a n",
              "\u2581 a", "r e", "o n", "\u2581 s", "e n"]
BPE_TOKENS = (["<pad>", "<unk>", "\u2581"] + [chr(c) for c in range(ord("a"), ord("z") + 1)] +
              ["'"] + [merge.replace(" ", "") for merge in BPE_MERGES])


def ctc_scoring(tokens, blank, separator):
    """Weights [2, V] and biases [V]: logit = weights[0] * loudness + weights[1] * pause
    loudness + bias. Letters follow the loudness of their frame and the blank its opposite;
    the separator follows the loudness around the frame (PAUSE_FRAMES wide), so it is cheap
    only in a real pause between words, not in the short gap of a stop consonant. Word
    pieces lean the same way: a word's first piece towards a pause, the others away."""
    weights = np.zeros([2, len(tokens)], dtype=np.float32)
    biases = np.zeros([len(tokens)], dtype=np.float32)
    for index, token in enumerate(tokens):
        if index == blank:
            weights[0, index] = -1.0
        elif index == separator:
            weights[1, index], biases[index] = -1.0, -1.0
        elif token.startswith("<"):
            biases[index] = -20.0
        elif token.startswith("\u2581"):
            # A piece that starts a word (sub-word vocabularies have no separator) does
            # best on the loud frames at the edge of a pause.
            weights[0, index], weights[1, index] = 1.0, -0.5
        else:
            weights[0, index], weights[1, index] = 1.0, 0.5
    return weights, biases


def ctc_head(nodes, loud_rows, tokens, blank, separator, output):
    """[1, 1, F] loudness -> [1, F, V] logits."""
    weights, biases = ctc_scoring(tokens, blank, separator)
    nodes += [
        const("pause_w", np.full([1, 1, PAUSE_FRAMES], 1.0 / PAUSE_FRAMES, dtype=np.float32)),
        helper.make_node("Conv", [loud_rows, "pause_w"], ["pause_rows"],
                         kernel_shape=[PAUSE_FRAMES], pads=[PAUSE_FRAMES // 2] * 2),
        helper.make_node("Concat", [loud_rows, "pause_rows"], ["head_rows"], axis=1),
        helper.make_node("Transpose", ["head_rows"], ["head_in"], perm=[0, 2, 1]),
        const("head_w", weights),
        const("head_b", biases),
        helper.make_node("MatMul", ["head_in", "head_w"], ["head_scaled"]),
        helper.make_node("Add", ["head_scaled", "head_b"], [output]),
    ]


def wav2vec2_ctc_model(tokens, blank, separator, masked=False, rank4=False):
    """input_values [batch, samples] (with attention_mask [batch, samples] int32 and
    input_lengths [batch] int32 when masked) -> logits [batch, frames, V], frames as the
    wav2vec2 feature encoder counts them: its seven convolutions, no padding."""
    nodes = []
    initializers = []
    inputs = [helper.make_tensor_value_info("input_values", TensorProto.FLOAT,
                                            ["batch", "samples"])]
    audio = "input_values"
    if masked:
        inputs += [
            helper.make_tensor_value_info("attention_mask", TensorProto.INT32,
                                          ["batch", "samples"]),
            helper.make_tensor_value_info("input_lengths", TensorProto.INT32, ["batch"]),
        ]
        nodes += [
            helper.make_node("Cast", ["attention_mask"], ["mask_float"], to=TensorProto.FLOAT),
            helper.make_node("Mul", ["input_values", "mask_float"], ["masked_values"]),
        ]
        audio = "masked_values"
    nodes += [
        helper.make_node("Mul", [audio, audio], ["power"]),
        const("channel_axis", int64s(1)),
        helper.make_node("Unsqueeze", ["power", "channel_axis"], ["conv0"]),
    ]
    for layer, (kernel, stride) in enumerate(zip(WAV2VEC2_KERNELS, WAV2VEC2_STRIDES)):
        initializers.append(numpy_helper.from_array(
            np.full([1, 1, kernel], 1.0 / kernel, dtype=np.float32), "conv_w%d" % layer))
        nodes.append(helper.make_node("Conv", ["conv%d" % layer, "conv_w%d" % layer],
                                      ["conv%d" % (layer + 1)], kernel_shape=[kernel],
                                      strides=[stride]))
    last = "conv%d" % len(WAV2VEC2_KERNELS)
    nodes += [
        const("power_floor", np.array(1e-8, dtype=np.float32)),
        helper.make_node("Add", [last, "power_floor"], ["power_floored"]),
        helper.make_node("Log", ["power_floored"], ["log_power"]),
        const("speech_level", np.array(SPEECH_LOG_ENERGY, dtype=np.float32)),
        helper.make_node("Sub", ["log_power", "speech_level"], ["loud_rows"]),
    ]
    head_output = "logits"
    if masked or rank4:
        # The lengths join the output at zero weight, as a real model's would shape it.
        head_output = "head_logits"
    ctc_head(nodes, "loud_rows", tokens, blank, separator, head_output)
    output_shape = ["batch", "frames", len(tokens)]
    if rank4:
        # A broken export: one dimension too many.
        nodes += [const("extra_axis", int64s(1)),
                  helper.make_node("Unsqueeze", ["head_logits", "extra_axis"], ["logits"])]
        output_shape = ["batch", 1, "frames", len(tokens)]
    if masked:
        nodes += [
            helper.make_node("Cast", ["input_lengths"], ["lengths_float"], to=TensorProto.FLOAT),
            helper.make_node("ReduceSum", ["lengths_float"], ["lengths_sum"], keepdims=0),
            const("lengths_weight", np.array(0, dtype=np.float32)),
            helper.make_node("Mul", ["lengths_sum", "lengths_weight"], ["lengths_zero"]),
            helper.make_node("Add", ["head_logits", "lengths_zero"], ["logits"]),
        ]
    return make_model(
        nodes, "wav2vec2_ctc", inputs,
        [helper.make_tensor_value_info("logits", TensorProto.FLOAT, output_shape)],
        initializers)


def feature_ctc_model(tokens, blank, separator):
    """input_features [1, frames, 128], attention_mask [1, frames] int32 ->
    log_probs [1, ceil(frames / 2), V], already log-softmaxed."""
    nodes = [
        helper.make_node("ReduceMean", ["input_features"], ["frame_mean"], axes=[2], keepdims=1),
        helper.make_node("Cast", ["attention_mask"], ["mask_float"], to=TensorProto.FLOAT),
        const("mask_axis", int64s(2)),
        helper.make_node("Unsqueeze", ["mask_float", "mask_axis"], ["mask_column"]),
        helper.make_node("Mul", ["frame_mean", "mask_column"], ["masked_mean"]),
        const("sub_starts", int64s(0)),
        const("sub_ends", int64s(INT64_MAX)),
        const("sub_axes", int64s(1)),
        const("sub_steps", int64s(CTC_FEATURE_SUBSAMPLING)),
        helper.make_node("Slice", ["masked_mean", "sub_starts", "sub_ends", "sub_axes",
                                   "sub_steps"], ["sub_mean"]),
        const("feature_gain", np.array(FEATURE_GAIN, dtype=np.float32)),
        helper.make_node("Mul", ["sub_mean", "feature_gain"], ["loudness"]),
        helper.make_node("Transpose", ["loudness"], ["loud_rows"], perm=[0, 2, 1]),
    ]
    ctc_head(nodes, "loud_rows", tokens, blank, separator, "head_logits")
    nodes.append(helper.make_node("LogSoftmax", ["head_logits"], ["log_probs"], axis=2))
    return make_model(
        nodes, "feature_ctc",
        [helper.make_tensor_value_info("input_features", TensorProto.FLOAT,
                                       [1, "frames", MEL_BINS]),
         helper.make_tensor_value_info("attention_mask", TensorProto.INT32, [1, "frames"])],
        [helper.make_tensor_value_info("log_probs", TensorProto.FLOAT,
                                       [1, "out_frames", len(tokens)])])


def sha256_of(data):
    import hashlib
    return hashlib.sha256(data).hexdigest()


def ctc_bundle(folder, model, vocabulary, tokenizer, model_entry):
    """Writes model.onnx, the vocabulary file and model_manifest.json with checksums."""
    os.makedirs(folder, exist_ok=True)
    onnx.checker.check_model(model)
    model_bytes = model.SerializeToString()
    vocabulary_bytes = json.dumps(vocabulary, ensure_ascii=False, indent=1).encode("utf-8")
    write_if_changed(os.path.join(folder, "model.onnx"), model_bytes)
    write_if_changed(os.path.join(folder, tokenizer["vocabulary_file"]), vocabulary_bytes)
    manifest = {
        "schema_version": 1,
        "upstream_model_id": "orvelle/test-" + os.path.basename(folder),
        "runtime_type": "onnx",
        "sample_rate": CTC_SAMPLE_RATE,
        "expected_audio_format": {"channels": 1, "sample_format": "float32"},
        "tokenizer": tokenizer,
        "model": dict(model_entry, file="model.onnx"),
        "license": {"name": "MIT", "source_url": "https://orvelle.invalid/test-models",
                    "redistribution": "allowed"},
        "checksums": {
            "model.onnx": "sha256:" + sha256_of(model_bytes),
            tokenizer["vocabulary_file"]: "sha256:" + sha256_of(vocabulary_bytes),
        },
        "version": "1",
    }
    write_if_changed(os.path.join(folder, "model_manifest.json"),
                     json.dumps(manifest, indent=2, sort_keys=True) + "\n")


def ctc_folders(root):
    char_vocabulary = {"vocab": {token: index for index, token in enumerate(CHAR_TOKENS)}}
    char_tokenizer = {"type": "ctc_char", "vocabulary_file": "vocab.json",
                      "blank_token": "<pad>", "unknown_token": "<unk>",
                      "word_separator_token": "|", "normalization": ["lowercase", "numbers"]}
    ctc_bundle(os.path.join(root, "ctc-char"),
               wav2vec2_ctc_model(CHAR_TOKENS, 0, 4), char_vocabulary, char_tokenizer,
               {"audio_input_name": "input_values", "logits_output_name": "logits",
                "output_kind": "logits", "frame_stride_seconds": 0.02})

    ctc_bundle(os.path.join(root, "ctc-rank4"),
               wav2vec2_ctc_model(CHAR_TOKENS, 0, 4, rank4=True), char_vocabulary,
               char_tokenizer,
               {"audio_input_name": "input_values", "logits_output_name": "logits",
                "output_kind": "logits", "frame_stride_seconds": 0.02})

    bpe_vocabulary = {
        "model": {"type": "BPE",
                  "vocab": {token: index for index, token in enumerate(BPE_TOKENS)},
                  "merges": BPE_MERGES},
        "pre_tokenizer": {"type": "Metaspace", "replacement": "\u2581"},
    }
    bpe_tokenizer = {"type": "bpe", "vocabulary_file": "tokenizer.json",
                     "blank_token": "<pad>", "unknown_token": "<unk>",
                     "normalization": ["lowercase", "numbers"]}
    ctc_bundle(os.path.join(root, "ctc-bpe-padded"),
               wav2vec2_ctc_model(BPE_TOKENS, 0, None, masked=True), bpe_vocabulary,
               bpe_tokenizer,
               {"audio_input_name": "input_values", "attention_mask_input_name": "attention_mask",
                "audio_length_input_name": "input_lengths", "logits_output_name": "logits",
                "output_kind": "logits", "frame_stride_seconds": 0.02,
                "input_shape": [1, CTC_FIXED_SAMPLES]})

    feature_tokenizer = dict(char_tokenizer, vocabulary_file="tokens.json")
    ctc_bundle(os.path.join(root, "ctc-features"),
               feature_ctc_model(CHAR_TOKENS, 0, 4), CHAR_TOKENS, feature_tokenizer,
               {"audio_input_name": "input_features", "attention_mask_input_name": "attention_mask",
                "logits_output_name": "log_probs", "output_kind": "log_probabilities",
                "frame_stride_seconds": 0.02, "input_shape": [1, CTC_FEATURE_FRAMES, MEL_BINS],
                "feature_hop_length": 160,
                "feature_subsampling_factor": CTC_FEATURE_SUBSAMPLING})


def main(argv):
    if len(argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    root = argv[1]
    split_folder(os.path.join(root, "parakeet-split"), split_encoder())
    split_folder(os.path.join(root, "parakeet-unshaped"), split_encoder(), shaped=False)
    split_folder(os.path.join(root, "parakeet-failing"), split_encoder("failing"))
    split_folder(os.path.join(root, "parakeet-slow"), split_encoder("slow"))
    fused = os.path.join(root, "parakeet-fused")
    os.makedirs(fused, exist_ok=True)
    save(fused_encoder(), os.path.join(fused, "encoder-model.onnx"))
    save(fused_decoder_joint(), os.path.join(fused, "decoder_joint-model.onnx"))
    write_if_changed(os.path.join(fused, "vocab.txt"), vocab_txt())
    public = os.path.join(root, "parakeet-public")
    os.makedirs(public, exist_ok=True)
    save(fused_encoder(PUBLIC_ENCODER_WIDTH), os.path.join(public, "encoder.int8.onnx"))
    save(public_decoder(), os.path.join(public, "decoder.int8.onnx"))
    save(public_joiner(), os.path.join(public, "joiner.int8.onnx"))
    write_if_changed(os.path.join(public, "tokens.txt"), vocab_txt())
    ctc_folders(root)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
