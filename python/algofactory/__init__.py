"""AlgoFactory from Python (placeholder: the package itself comes with the Python bindings)."""
