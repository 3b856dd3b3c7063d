#pragma once

// The hierarchical record of string keys and values. Being built.
class CXML {};
