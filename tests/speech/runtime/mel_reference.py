#!/usr/bin/python3
"""Log-mel features of the speech front end, written from their definition in numpy, as an
independent reference for the program's FFTW implementation. The definition rounds the
pre-emphasised samples and the windowed frames to 32-bit floats; everything after that
(transform, filters, log, normalisation) is done here in 64-bit arithmetic.

Usage: mel_reference.py SAMPLES.f32 FEATURES.f32
Reads raw little-endian float32 samples at 16 kHz; writes frames x 128 float32 values.
"""

import sys

import numpy as np

SAMPLE_RATE = 16000
HOP = 160
WINDOW = 400
N_FFT = 512
N_MELS = 128


def hz_to_mel(hz):
    hz = np.asarray(hz, dtype=np.float64)
    linear = hz / (200.0 / 3)
    with np.errstate(divide="ignore"):
        logarithmic = 1000.0 / (200.0 / 3) + np.log(np.maximum(hz, 1e-12) / 1000.0) / (
            np.log(6.4) / 27.0)
    return np.where(hz >= 1000.0, logarithmic, linear)


def mel_to_hz(mel):
    mel = np.asarray(mel, dtype=np.float64)
    break_mel = 1000.0 / (200.0 / 3)
    linear = mel * (200.0 / 3)
    logarithmic = 1000.0 * np.exp((np.log(6.4) / 27.0) * (mel - break_mel))
    return np.where(mel >= break_mel, logarithmic, linear)


def filter_bank():
    frequencies = np.linspace(0, SAMPLE_RATE / 2, N_FFT // 2 + 1)
    edges = mel_to_hz(np.linspace(hz_to_mel(0.0), hz_to_mel(SAMPLE_RATE / 2.0), N_MELS + 2))
    widths = np.diff(edges)
    ramps = edges[:, None] - frequencies[None, :]
    weights = np.zeros((N_MELS, frequencies.size))
    for m in range(N_MELS):
        lower = -ramps[m] / widths[m]
        upper = ramps[m + 2] / widths[m + 1]
        weights[m] = np.maximum(0, np.minimum(lower, upper))
    return weights * (2.0 / (edges[2:N_MELS + 2] - edges[:N_MELS]))[:, None]


def features(samples):
    x = samples.astype(np.float32)
    if x.size == 0:
        return np.zeros((0, N_MELS))
    emphasised = np.concatenate([x[:1], x[1:] - np.float32(0.97) * x[:-1]]).astype(np.float32)
    padded = np.pad(emphasised, N_FFT // 2)
    count = (padded.size - N_FFT) // HOP + 1
    window = np.zeros(N_FFT, dtype=np.float32)
    offset = (N_FFT - WINDOW) // 2
    window[offset:offset + WINDOW] = np.hanning(WINDOW)  # the symmetric Hann window
    frames = np.stack([padded[t * HOP:t * HOP + N_FFT] for t in range(count)]) * window
    power = np.abs(np.fft.rfft(frames.astype(np.float64), axis=1)) ** 2
    logmel = np.log(power @ filter_bank().T + 2.0 ** -24)
    mean = logmel.mean(axis=0)
    deviation = np.sqrt(((logmel - mean) ** 2).sum(axis=0) / max(count - 1, 1))
    return (logmel - mean) / (deviation + 1e-5)


def main():
    samples = np.fromfile(sys.argv[1], dtype="<f4")
    features(samples).astype("<f4").tofile(sys.argv[2])


if __name__ == "__main__":
    main()
