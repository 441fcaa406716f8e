#pragma once

// Numbers of the resources of a description, for the resource script and the program.

#define DESCRIPTION_SCHEMA 201
#define DESCRIPTION_STYLE_SHEET 202
