// An agent library without the report function.
int hollow = 1;
