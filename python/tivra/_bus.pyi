"""What connects to engines of the bus, over their client libraries."""

engines: object
