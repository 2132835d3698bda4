"""The single changes that tests/mutate makes: (name, file, what stands there exactly once, what takes its place)."""
from . import codec, contract, core, store

CHANGES = core.CHANGES + codec.CHANGES + store.CHANGES + contract.CHANGES

# Changes that nobody can see, each with the reason.
EQUIVALENT = {
    "parts of 140 octets": "no text is sent as 8-bit data",
    "the destination is checked first": "a refused number is reported in the same words, whichever it is",
    "a record that did not fit counts as written": "nothing is kept back, so the closing does not fail for want of room",
    "the old answer stays in the buffer": "only an answer delivered since is looked at, and it fills the buffer",
}
