"""./bench: what the gate costs beside the bare store. Measures, judges, prints, draws; see __main__.py."""
