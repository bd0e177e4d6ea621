// Test tool: scrambles a plain RDF, as the business systems' RDF editors did.
//   qb_scramble_rdf PLAIN.rdf > SCRAMBLED.rdf

#include <cstdio>
#include <fstream>
#include <sstream>

#include "tests/rdf_scrambler.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: qb_scramble_rdf PLAIN.rdf > SCRAMBLED.rdf\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "qb_scramble_rdf: cannot read %s\n", argv[1]);
    return 1;
  }
  std::stringstream text;
  text << in.rdbuf();
  std::string out = qb::test::ScrambleRDF(text.str());
  std::fwrite(out.data(), 1, out.size(), stdout);
  return 0;
}
