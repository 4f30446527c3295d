#!/usr/bin/python3
"""Writes a tiny language model in GGUF form for the tests that run llama.cpp's llama-cli.

Usage: make_test_gguf.py LLAMA_DIR OUTPUT.gguf

LLAMA_DIR is what scripts/fetch-llama fills (third_party/llama): llama.cpp's own gguf-py
writes the file, and the vocabulary is the Qwen2 one that llama.cpp ships for its tokenizer
tests, chat template included. Run it with Debian's /usr/bin/python3 and python3-numpy.

The model has the Qwen2 shape at toy size (2 layers, 32 wide) with random weights from a
fixed seed, so it says nothing sensible. Its output layer carries a bias towards a few
tokens: a handful of words, the quote that ends a JSON string, the brackets that end a list,
the comma, two digits and the end-of-text token. The quote outranks the words by more than
the random weights move the logits, so inside a string it is the likeliest token allowed at
every step; the brackets outrank the comma, and the comma the digits, so a list ends and a
number is one digit (sixteen of them and an exponent would overflow a double). Under a JSON
schema (llama-cli --json-schema) the whole answer is therefore a short, well-formed object
that ends, at any temperature. Where none of these tokens is allowed (blanks, a key), the
random weights choose, so the text still differs a little from run to run.
"""

import os
import sys

import numpy as np

EMBEDDING = 32
LAYERS = 2
HEADS = 4
KV_HEADS = 2
FEED_FORWARD = 64
CONTEXT = 65536
SEED = 19

# Token text (byte-level BPE: "Ġ" is a leading blank) and its output bias.
PREFERRED = {
    "ĠScreen": 12.0,
    "Ġrecording": 11.6,
    "Ġdemo": 11.4,
    "Ġsetup": 11.2,
    '"': 13.0,
    '",': 10.0,
    "]": 11.0,
    "],": 10.0,
    "}": 10.0,
    ",": 9.0,
    "1": 8.0,
    "5": 8.0,
    "<|endoftext|>": 14.0,
    "<|im_end|>": 14.0,
}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    llama_dir, output = sys.argv[1], sys.argv[2]
    vocabulary_path = os.path.join(llama_dir, "models", "ggml-vocab-qwen2.gguf")
    if not os.path.exists(vocabulary_path):
        sys.exit(f"{vocabulary_path} is missing: run scripts/fetch-llama")
    # Reading the vocabulary takes a while: a model newer than its inputs is kept.
    if os.path.exists(output) and os.path.getmtime(output) > max(
            os.path.getmtime(__file__), os.path.getmtime(vocabulary_path)):
        return
    os.makedirs(os.path.dirname(os.path.abspath(output)), exist_ok=True)
    sys.path.insert(0, os.path.join(llama_dir, "gguf-py"))
    import gguf

    vocabulary = gguf.GGUFReader(vocabulary_path)
    writer = gguf.GGUFWriter(output + ".part", "qwen2")
    writer.add_name("orvelle tiny test model")
    writer.add_context_length(CONTEXT)
    writer.add_embedding_length(EMBEDDING)
    writer.add_block_count(LAYERS)
    writer.add_feed_forward_length(FEED_FORWARD)
    writer.add_head_count(HEADS)
    writer.add_head_count_kv(KV_HEADS)
    writer.add_rope_freq_base(1000000.0)
    writer.add_layer_norm_rms_eps(1e-6)
    writer.add_file_type(gguf.LlamaFileType.MOSTLY_F16)

    tokens = None
    for name, field in vocabulary.fields.items():
        if not name.startswith("tokenizer."):
            continue
        value = field.contents()
        if name == "tokenizer.ggml.tokens":
            tokens = value
        if isinstance(value, list):
            kind = field.types[1] if len(field.types) > 1 else field.types[0]
            writer.add_key_value(name, value, gguf.GGUFValueType.ARRAY, sub_type=kind)
        else:
            writer.add_key_value(name, value, field.types[0])
    vocabulary_size = len(tokens)
    index = {text: i for i, text in enumerate(tokens)}

    random = np.random.default_rng(SEED)

    def weights(*shape, scale=0.02):
        return (random.standard_normal(shape) * scale).astype(np.float32)

    head = EMBEDDING // HEADS
    writer.add_tensor("token_embd.weight", weights(vocabulary_size, EMBEDDING, scale=0.5).astype(np.float16))
    writer.add_tensor("output_norm.weight", np.ones(EMBEDDING, dtype=np.float32))
    writer.add_tensor("output.weight", weights(vocabulary_size, EMBEDDING, scale=0.05).astype(np.float16))
    bias = np.zeros(vocabulary_size, dtype=np.float32)
    for text, value in PREFERRED.items():
        bias[index[text]] = value
    writer.add_tensor("output.bias", bias)
    for layer in range(LAYERS):
        prefix = f"blk.{layer}."
        writer.add_tensor(prefix + "attn_norm.weight", np.ones(EMBEDDING, dtype=np.float32))
        writer.add_tensor(prefix + "attn_q.weight", weights(EMBEDDING, EMBEDDING))
        writer.add_tensor(prefix + "attn_k.weight", weights(KV_HEADS * head, EMBEDDING))
        writer.add_tensor(prefix + "attn_v.weight", weights(KV_HEADS * head, EMBEDDING))
        writer.add_tensor(prefix + "attn_q.bias", weights(EMBEDDING))
        writer.add_tensor(prefix + "attn_k.bias", weights(KV_HEADS * head))
        writer.add_tensor(prefix + "attn_v.bias", weights(KV_HEADS * head))
        writer.add_tensor(prefix + "attn_output.weight", weights(EMBEDDING, EMBEDDING))
        writer.add_tensor(prefix + "ffn_norm.weight", np.ones(EMBEDDING, dtype=np.float32))
        writer.add_tensor(prefix + "ffn_gate.weight", weights(FEED_FORWARD, EMBEDDING))
        writer.add_tensor(prefix + "ffn_up.weight", weights(FEED_FORWARD, EMBEDDING))
        writer.add_tensor(prefix + "ffn_down.weight", weights(EMBEDDING, FEED_FORWARD))

    writer.write_header_to_file()
    writer.write_kv_data_to_file()
    writer.write_tensors_to_file()
    writer.close()
    os.replace(output + ".part", output)


if __name__ == "__main__":
    main()
